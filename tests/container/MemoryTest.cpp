// Runs a container out of memory at every single allocation, once each, and goes on as a caller may.
#include <support/FailingMemory.h>
#include <support/SrcText.h>
#include <support/Streams.h>

#include <kel/src/SrcValidator.h>
#include <kel/src/container/ShapeResourceContainer.h>

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <new>
#include <sstream>
#include <string>
#include <vector>

namespace {

using kel::src::detail::ShapeResourceContainer;
using kel::tests::allocationsLeft;
using kel::tests::SrcText;

constexpr std::size_t MESHES = 10; // enough for every list in the container to grow more than once
constexpr std::size_t VERTICES = 3;
constexpr std::size_t INDICES = 3;
constexpr std::size_t INDEX_BYTES = 32 * 1024; // so many that a chunk has memory of its own

/// What a caller holds while it fills a container.
struct Caller {
    ShapeResourceContainer container;
    std::map<std::string, char> viewBytes; ///< the byte that fills each buffer view
};

using Step = std::function<void(Caller&)>;

/// The steps of one export. A step that needs the result of one that failed does nothing.
class Script {
public:
    Script() {
        for (std::size_t mesh = 0; mesh < MESHES; ++mesh)
            addMeshSteps(mesh);
        steps.push_back([this](Caller& caller) {
            picojson::object parameters;
            parameters["shininess"] = picojson::value(picojson::object());
            caller.container.addTechnique("a technique with a name that is long",
                                          picojson::value(parameters));
            techniqueIsThere = true;
        });
        for (std::size_t mesh = 0; mesh < MESHES; ++mesh) {
            steps.push_back([this, mesh](Caller& caller) {
                if (!techniqueIsThere) return;
                const std::string id = "a material with a name that is long " + std::to_string(mesh);
                picojson::object values;
                values["shininess"] = picojson::value(picojson::array(1, picojson::value(0.5)));
                caller.container.addMaterial(id, "a technique with a name that is long",
                                             picojson::value(values));
                if (meshIsThere[mesh]) caller.container.assignMaterialToMesh(id, meshId(mesh));
            });
        }
        steps.push_back([](Caller& caller) {
            caller.container.addMetaData("a key of the document that is long",
                                         picojson::value("a value of the document that is long"));
        });
    }

    /// Runs all steps. One that runs out of memory is left out or tried once more.
    ///
    /// returns  whether any step did
    bool run(Caller& caller, bool tryAgain) {
        bool failed = false;
        for (const Step& step : steps) {
            try {
                step(caller);
            } catch (const std::bad_alloc&) {
                failed = true;
                allocationsLeft = -1;
                if (tryAgain) step(caller);
            }
        }
        return failed;
    }

    bool meshIsThere[MESHES] = {};

private:
    static std::string meshId(std::size_t mesh) {
        return "a mesh with a name that is long " + std::to_string(mesh);
    }

    void addMeshSteps(std::size_t mesh) {
        steps.push_back([this, mesh](Caller& caller) {
            const char fill = static_cast<char>(0x30 + mesh);
            const std::vector<unsigned char> bytes(VERTICES * 12, static_cast<unsigned char>(fill));
            positionView[mesh] = caller.container.addBufferView(bytes.data(), bytes.size(), nullptr);
            caller.viewBytes[positionView[mesh]] = fill;
        });
        steps.push_back([this, mesh](Caller& caller) {
            if (positionView[mesh].empty()) return;
            const double offset[3] = {0, 0, 0.5 * static_cast<double>(mesh)}, scale[3] = {1, 1, 1};
            attributes[mesh] = caller.container.addAttributeView<3>(
                positionView[mesh], 0, 12, VERTICES, ShapeResourceContainer::FLOAT, offset, scale);
        });
        steps.push_back([this, mesh](Caller& caller) {
            std::vector<unsigned char> bytes(INDEX_BYTES, 0);
            indexBuffer[mesh] = caller.container.addBufferView(std::move(bytes));
            caller.viewBytes[indexBuffer[mesh]] = 0;
        });
        steps.push_back([this, mesh](Caller& caller) {
            if (indexBuffer[mesh].empty()) return;
            indices[mesh] =
                caller.container.addIndexView(indexBuffer[mesh], 0, INDICES, ShapeResourceContainer::USHORT);
        });
        steps.push_back([this, mesh](Caller& caller) {
            if (attributes[mesh].empty() || indices[mesh].empty()) return;
            picojson::object meta;
            meta["a first key that is long enough"] = picojson::value("a first value that is long enough");
            meta["a second key that is long enough"] = picojson::value(2.5);
            caller.container.addMesh(meshId(mesh), {{"position", attributes[mesh]}}, indices[mesh], "",
                                     ShapeResourceContainer::TRIANGLES, nullptr, nullptr,
                                     picojson::value(meta));
            meshIsThere[mesh] = true;
        });
        for (const char* key : {"z last but added early", "b", "a \"quoted\" key that comes late"}) {
            steps.push_back([this, mesh, key](Caller& caller) {
                if (meshIsThere[mesh])
                    caller.container.addMetaDataToMesh(key, picojson::value(key), meshId(mesh));
            });
        }
    }

    std::vector<Step> steps;
    std::string positionView[MESHES], attributes[MESHES], indexBuffer[MESHES], indices[MESHES];
    bool techniqueIsThere = false;
};

/// That each buffer view's chunk lies where the header says, and that meshes have all of the metadata they were
/// added with.
void expectConsistent(const Caller& caller, const Script& script, const std::string& file) {
    const SrcText text(file);
    const auto& views = text.json.get("bufferViews").get<picojson::object>();
    for (const auto& [id, fill] : caller.viewBytes) {
        const auto view = views.find(id);
        ASSERT_NE(view, views.end()) << id;
        const std::string chunkId =
            view->second.get("chunks").get<picojson::array>().at(0).get<std::string>();
        const picojson::value& chunk = text.json.get("bufferChunks").get(chunkId);
        const auto offset = static_cast<std::size_t>(chunk.get("byteOffset").get<double>());
        const auto length = static_cast<std::size_t>(chunk.get("byteLength").get<double>());
        EXPECT_EQ(text.data.substr(offset, length), std::string(length, fill)) << id;
    }
    const auto& meshes = text.json.get("meshes").get<picojson::object>();
    std::size_t expected = 0;
    for (const bool there : script.meshIsThere)
        expected += there;
    EXPECT_EQ(meshes.size(), expected);
    for (const auto& [id, mesh] : meshes)
        EXPECT_EQ(mesh.get("meta").get("a second key that is long enough").get<double>(), 2.5) << id;
}

TEST(ContainerMemory, EveryAllocationMayFailAndTheFileStaysValid) {
    for (const bool tryAgain : {false, true}) {
        bool failed = true;
        long allocations = 0;
        for (; failed; ++allocations) {
            Script script;
            Caller caller;
            std::ostringstream out;
            {
                const kel::tests::CapturedStreams quiet;
                allocationsLeft = allocations;
                failed = script.run(caller, tryAgain);
                allocationsLeft = -1;
                caller.container.writeToStream(out);
            }
            const std::string file = out.str();
            const auto report = kel::src::validateSrc(kel::src::ByteView(file.data(), file.size()));
            ASSERT_EQ(report.errors(), 0u)
                << "after " << allocations << " allocations: " << report.findings.front().path << " "
                << report.findings.front().detail;
            expectConsistent(caller, script, file);
            if (tryAgain) {
                for (const bool there : script.meshIsThere)
                    EXPECT_TRUE(there) << "after " << allocations << " allocations";
            }
        }
        EXPECT_GT(allocations, 200);
    }
}

/// Takes every byte and, unlike a string stream, no memory.
class NullBuffer : public std::streambuf {
protected:
    std::streamsize xsputn(const char*, std::streamsize size) override { return size; }
    int overflow(int c) override { return c; }
};

TEST(ContainerMemory, AFailedWriteChangesNothing) {
    Caller caller;
    Script().run(caller, false);
    std::ostringstream before;
    Caller untouched;
    Script().run(untouched, false);
    untouched.container.writeToStream(before);
    NullBuffer buffer;
    bool failed = true;
    for (long allocations = 0; failed; ++allocations) {
        std::ostream out(&buffer);
        failed = false;
        allocationsLeft = allocations;
        try {
            caller.container.writeToStream(out);
        } catch (const std::bad_alloc&) {
            failed = true;
        }
        allocationsLeft = -1;
    }
    std::ostringstream after;
    caller.container.writeToStream(after);
    EXPECT_EQ(after.str(), before.str());
}

} // namespace
