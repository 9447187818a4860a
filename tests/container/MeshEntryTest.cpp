#include <kel/src/container/ShapeResourceContainer.h>

#include <support/SrcText.h>
#include <support/Streams.h>

#include <gtest/gtest.h>

namespace {

using kel::src::detail::ShapeResourceContainer;
using kel::tests::CapturedStreams;
using kel::tests::SrcText;
using kel::tests::written;

SrcText fileOf(ShapeResourceContainer& container) {
    return written([&](std::ostream& out) { container.writeToStream(out); });
}

void addPlainMesh(ShapeResourceContainer& container, const std::string& id, picojson::value meta = {}) {
    container.addMesh(id, {}, "", "", ShapeResourceContainer::TRIANGLES, nullptr, nullptr, std::move(meta));
}

std::string primitiveOf(unsigned int type) {
    ShapeResourceContainer container;
    container.addMesh("m", {}, "", "", static_cast<ShapeResourceContainer::SRCPrimitiveType>(type), nullptr,
                      nullptr, picojson::value());
    return fileOf(container).at("meshes", "m", "primitive");
}

TEST(MeshEntry, WithoutBoxAndMetaHasFourKeys) {
    ShapeResourceContainer container;
    container.addMesh("0", {{"position", "attributeView0"}}, "indexView0", "",
                      ShapeResourceContainer::TRIANGLES, nullptr, nullptr, picojson::value());
    EXPECT_EQ(
        fileOf(container).at("meshes"),
        R"({"0":{"attributes":{"position":"attributeView0"},"indices":"indexView0","material":"","primitive":4}})");
}

TEST(MeshEntry, BoxCornersAreIndependent) {
    ShapeResourceContainer container;
    const float center[3] = {0.1f, 2, 3}, size[3] = {4, 5, 6.5f};
    container.addMesh("c", {}, "", "", ShapeResourceContainer::TRIANGLES, center, nullptr, picojson::value());
    container.addMesh("s", {}, "", "", ShapeResourceContainer::TRIANGLES, nullptr, size, picojson::value());
    const SrcText file = fileOf(container);
    EXPECT_EQ(file.at("meshes", "c", "bboxCenter"), "[0.10000000149011612,2,3]");
    EXPECT_EQ(file.at("meshes", "c", "bboxSize"), "");
    EXPECT_EQ(file.at("meshes", "s", "bboxCenter"), "");
    EXPECT_EQ(file.at("meshes", "s", "bboxSize"), "[4,5,6.5]");
}

TEST(MeshEntry, EmptyMetaObjectIsKept) {
    ShapeResourceContainer container;
    addPlainMesh(container, "m", picojson::value(picojson::object()));
    EXPECT_EQ(fileOf(container).at("meshes", "m", "meta"), "{}");
}

TEST(MeshEntry, MetaOfAnyOtherTypeIsIgnored) {
    for (const picojson::value& meta : {picojson::value(1.0), picojson::value(picojson::array()),
                                        picojson::value(true), picojson::value("text")}) {
        ShapeResourceContainer container;
        addPlainMesh(container, "m", meta);
        EXPECT_EQ(fileOf(container).at("meshes", "m", "meta"), "");
    }
}

TEST(MeshEntry, MetaObjectIsWritten) {
    ShapeResourceContainer container;
    picojson::object meta;
    meta["b"] = picojson::value(2.0);
    meta["a"] = picojson::value("x");
    addPlainMesh(container, "m", picojson::value(meta));
    EXPECT_EQ(fileOf(container).at("meshes", "m", "meta"), R"({"a":"x","b":2})");
}

TEST(MeshEntry, PrimitiveIsTheWebGLMode) {
    EXPECT_EQ(primitiveOf(0), "4");
    EXPECT_EQ(primitiveOf(1), "1");
    EXPECT_EQ(primitiveOf(2), "0");
    EXPECT_EQ(primitiveOf(77), "4");
}

TEST(MeshEntry, AttributesStandInByteOrder) {
    ShapeResourceContainer container;
    container.addMesh("m", {{"position", "attributeView0"}, {"normal", "attributeView1"}}, "", "",
                      ShapeResourceContainer::TRIANGLES, nullptr, nullptr, picojson::value());
    EXPECT_NE(fileOf(container).header.find(R"({"normal":"attributeView1","position":"attributeView0"})"),
              std::string::npos);
}

TEST(MeshEntry, AddingAgainReplacesTheEntryAndItsMeta) {
    ShapeResourceContainer container;
    addPlainMesh(container, "m");
    container.addMetaDataToMesh("key", picojson::value(1.0), "m");
    container.addMesh("m", {}, "second", "", ShapeResourceContainer::TRIANGLES, nullptr, nullptr,
                      picojson::value());
    const SrcText file = fileOf(container);
    EXPECT_EQ(file.at("meshes", "m", "indices"), "\"second\"");
    EXPECT_EQ(file.at("meshes", "m", "meta"), "");
}

TEST(MeshMetaData, IsCreatedAndReplaced) {
    ShapeResourceContainer container;
    addPlainMesh(container, "m");
    container.addMetaDataToMesh("z", picojson::value(1.0), "m");
    container.addMetaDataToMesh("a", picojson::value(1.0), "m");
    container.addMetaDataToMesh("z", picojson::value("new"), "m");
    EXPECT_EQ(fileOf(container).at("meshes", "m", "meta"), R"({"a":1,"z":"new"})");
}

TEST(MeshMetaData, OfAnUnknownMeshIsAnErrorOnStandardError) {
    ShapeResourceContainer container;
    CapturedStreams streams;
    container.addMetaDataToMesh("key", picojson::value(1.0), "7");
    EXPECT_EQ(streams.err(), "ERROR: Cannot add meta data to mesh with ID \"7\", no such mesh found.\n");
    EXPECT_EQ(streams.out(), "");
    EXPECT_EQ(fileOf(container).at("meshes"), "{}");
}

TEST(MeshMaterial, OfAnUnknownMeshIsAnErrorOnStandardError) {
    ShapeResourceContainer container;
    CapturedStreams streams;
    container.assignMaterialToMesh("m", "");
    EXPECT_EQ(streams.err(), "ERROR: Cannot assign material to mesh with ID \"\", no such mesh found.\n");
    EXPECT_EQ(streams.out(), "");
}

TEST(MeshMaterial, NotThereYetIsAssignedWithAWarningOnStandardOutput) {
    ShapeResourceContainer container;
    addPlainMesh(container, "0");
    CapturedStreams streams;
    container.assignMaterialToMesh("m", "0");
    container.addMaterial("m", "t", picojson::value(picojson::object()));
    EXPECT_EQ(streams.out(),
              "WARNING: Assigning material with ID \"m\", to mesh, but such a material doesn't exist yet.\n");
    EXPECT_EQ(streams.err(), "");
    EXPECT_EQ(fileOf(container).at("meshes", "0", "material"), "\"m\"");
}

TEST(MeshMaterial, ThatIsThereIsAssignedInSilence) {
    ShapeResourceContainer container;
    addPlainMesh(container, "0");
    container.addMaterial("m", "t", picojson::value(picojson::object()));
    CapturedStreams streams;
    container.assignMaterialToMesh("m", "0");
    EXPECT_EQ(streams.out() + streams.err(), "");
}

} // namespace
