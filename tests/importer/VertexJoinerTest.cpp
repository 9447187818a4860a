// The joining of vertices by the block, beside the joining of one after another that defines it.

#include <VertexJoiner.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

namespace {

using kel::importer::detail::VertexJoiner;

/// Rows of `width` floats, of which many are equal.
std::vector<float> rows(std::size_t count, std::size_t width, unsigned values) {
    std::mt19937 random(7);
    std::vector<float> numbers(count * width);
    for (float& number : numbers)
        number = static_cast<float>(random() % values) - 1.5f;
    return numbers;
}

class JoiningVertices : public testing::TestWithParam<std::size_t> {};
INSTANTIATE_TEST_SUITE_P(AnyExpectation, JoiningVertices, testing::Values(0, 1, 700, 100000));

TEST_P(JoiningVertices, ByTheBlockIsJoiningOneByOne) {
    const std::vector<std::size_t> widths = {3, 3, 2};
    constexpr std::size_t WIDTH = 8;
    for (const std::size_t count : {std::size_t{0}, std::size_t{1}, std::size_t{31}, std::size_t{32},
                                    std::size_t{33}, std::size_t{5000}}) {
        const std::vector<float> vertices = rows(count, WIDTH, 3);
        VertexJoiner plain(widths);
        std::vector<std::uint32_t> expected;
        for (std::size_t v = 0; v < count; ++v)
            expected.push_back(plain.add(&vertices[v * WIDTH]));

        VertexJoiner joiner(widths, GetParam());
        std::vector<std::uint32_t> indices(count);
        joiner.add(vertices.data(), count, indices.data());
        EXPECT_EQ(indices, expected);
        ASSERT_EQ(joiner.size(), plain.size());
        for (std::size_t stream = 0; stream < widths.size(); ++stream)
            EXPECT_EQ(joiner.stream(stream), plain.stream(stream));
    }
}

TEST(Joining, GivesEveryVertexBack) {
    constexpr std::size_t WIDTH = 2;
    const std::vector<float> vertices = rows(3000, WIDTH, 40);
    VertexJoiner joiner({WIDTH});
    for (std::size_t v = 0; v < vertices.size() / WIDTH; ++v) {
        const std::uint32_t index = joiner.add(&vertices[v * WIDTH]);
        ASSERT_LT(index, joiner.size());
        for (std::size_t c = 0; c < WIDTH; ++c)
            ASSERT_EQ(joiner.stream(0)[index * WIDTH + c], vertices[v * WIDTH + c]);
    }
    EXPECT_LE(joiner.size(), 1600u) << "there are no more different ones";
}

} // namespace
