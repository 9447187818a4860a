#include <kel/convert/WriteCounted.h>

#include <kel/convert/ConvertError.h>

#include <ostream>
#include <streambuf>

namespace kel::convert {

namespace {

/// Hands everything on to another stream buffer and counts it.
class CountingBuffer final : public std::streambuf {
public:
    explicit CountingBuffer(std::streambuf* next) : next(next) {}
    std::uint64_t bytes = 0;

protected:
    int_type overflow(int_type character) override {
        const auto result = next->sputc(traits_type::to_char_type(character));
        if (!traits_type::eq_int_type(result, traits_type::eof())) ++bytes;
        return result;
    }
    std::streamsize xsputn(const char* text, std::streamsize size) override {
        const std::streamsize taken = next->sputn(text, size);
        bytes += static_cast<std::uint64_t>(taken);
        return taken;
    }
    int sync() override { return next->pubsync(); }

private:
    std::streambuf* next;
};

} // namespace

std::uint64_t writeCounted(std::ostream& stream, const std::string& name,
                           const std::function<void(std::ostream&)>& write) {
    CountingBuffer buffer(stream.rdbuf());
    // A stream without a buffer takes nothing.
    std::ostream out(stream.rdbuf() ? &buffer : nullptr);
    if (out) write(out);
    if (!out.flush())
        throw ConvertError(ConvertCode::STREAM_FAILED, name,
                           " after " + std::to_string(buffer.bytes) + " bytes");
    return buffer.bytes;
}

} // namespace kel::convert
