#pragma once

#include <kel/importer/Export.h>

/// Between this library and the program that reads models for it in processes of their own; not installed.
namespace kel::importer::detail {

constexpr const char* HELPER_NAME = "kelsrc-import";
/// Names another program than the one that is installed with the library.
constexpr const char* HELPER_VARIABLE = "KELSRC_IMPORT_HELPER";
/// Both sides are of one build.
constexpr const char* HELPER_VERSION = KELSRC_IMPORT_VERSION;
/// The descriptor by which the helper talks with the process that started it.
constexpr int HELPER_SOCKET = 3;

/// Reads models until the other side of the socket is closed: each in a fork of this process, which has one thread.
///
/// returns  the exit status
KEL_IMPORTER_EXPORT int serveImports();

} // namespace kel::importer::detail
