// Each message asks the logging library for one logger. Linked against a library that counts the calls.
#include "support/ForeignMesh.h"
#include "support/LogCapture.h"
#include "support/Meshes.h"

#include <kel/src/MeshUtils.h>
#include <kel/src/SrcWriter.h>

#include <boost/log/attributes/constant.hpp>
#include <logging/Logger.h>
#include <src/builder/MeshBuilder.h>

#include <gtest/gtest.h>

#include <sstream>

namespace {
int loggers = 0;
}

namespace logging {

std::shared_ptr<BoostLogger> Logger::getBoostLogger(int line, std::string, std::string) {
    ++loggers;
    auto logger = std::make_shared<BoostLogger>();
    logger->add_attribute("Line", boost::log::attributes::constant<int>(line));
    return logger;
}

} // namespace logging

namespace {

using kel::mesh::DefaultMesh;
using kel::tests::LogCapture;

/// Runs something that logs one message, and returns how many loggers it asked for.
template<typename Run>
int loggersOfOneMessage(const Run& run) {
    const LogCapture log;
    loggers = 0;
    run();
    EXPECT_EQ(log.records().size(), 1u);
    for (const auto& record : log.records())
        EXPECT_GT(record.line, 0);
    return loggers;
}

int loggersOfStatistics(const kel::mesh::MeshPtr& mesh) {
    return loggersOfOneMessage([&] {
        kel::src::detail::addStatisticsMetaData(mesh, std::make_shared<std::map<std::string, std::string>>());
    });
}

TEST(LogCalls, OfAPrimitiveTypeWithoutStatistics) {
    const auto mesh = std::make_shared<DefaultMesh>(kel::mesh::LINE_STRIP);
    mesh->addAttribute("position", 3, std::vector<float>(9));
    EXPECT_EQ(loggersOfStatistics(mesh), 1);
}

TEST(LogCalls, OfMissingPositions) {
    EXPECT_EQ(loggersOfStatistics(std::make_shared<DefaultMesh>(kel::mesh::POINTS)), 1);
}

TEST(LogCalls, OfPositionsThatAreNotThreeFloats) {
    const auto mesh = std::make_shared<DefaultMesh>();
    mesh->addAttribute("position", 2, std::vector<float>(8));
    EXPECT_EQ(loggersOfStatistics(mesh), 1);
}

TEST(LogCalls, OfMissingIndices) {
    const auto mesh = std::make_shared<DefaultMesh>();
    mesh->addAttribute("position", 3, std::vector<float>(9));
    EXPECT_EQ(loggersOfStatistics(mesh), 1);
}

TEST(LogCalls, OfMissingMetadata) {
    kel::src::SrcWriterInput input;
    input.meshes = {fixture::unitSquare()};
    std::ostringstream out;
    EXPECT_EQ(loggersOfOneMessage(
                  [&] { kel::src::SrcWriter::write(input, out, kel::src::SrcWriter::UNCOMPRESSED); }),
              1);
}

TEST(LogCalls, OfMetadataThatIsNoJson) {
    EXPECT_EQ(loggersOfOneMessage([] {
                  src::builder::MeshBuilder::create("m", nullptr, src::TRIANGLES)->setMetaJsonString("none");
              }),
              1);
}

TEST(LogCalls, NoMessageAsksForNoLogger) {
    const LogCapture log;
    loggers = 0;
    kel::src::detail::addStatisticsMetaData(fixture::unitSquare(),
                                            std::make_shared<std::map<std::string, std::string>>());
    EXPECT_EQ(loggers, 0);
}

} // namespace
