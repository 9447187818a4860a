// Raw bytes into the reader and the validator.

#include <fuzz/Exercise.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::exercise({data, size});
    return 0;
}
