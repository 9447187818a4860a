// Part of programs that import, never of a library: a library must not take the place of symbols of the process
// that it lives in.

#include <stdexcept>
#include <string>

// The packaged build of Assimp keeps its assertions, many of which check the file rather than the program,
// and a failed one ends the process. Its own way to replace the handler is not exported. But every assertion
// calls this function through the dynamic linker, which finds a program's before it finds Assimp's: the
// readers then leave by exception, as they do for every other complaint about a damaged file.
namespace Assimp {

__attribute__((visibility("default"))) void aiAssertViolation(const char* expression, const char* file,
                                                              int line);

void aiAssertViolation(const char* expression, const char*, int) {
    throw std::runtime_error(std::string("an internal check failed: ") + expression);
}

} // namespace Assimp
