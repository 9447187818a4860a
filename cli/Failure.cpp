#include "Failure.h"

#include <kel/importer/Exporter.h>
#include <kel/src/SrcReader.h>

#include <new>

namespace kelsrc::cli {

namespace {

Status statusOf(kel::convert::Fault fault) {
    switch (fault) {
    case kel::convert::Fault::SOURCE:
        return STATUS_INPUT;
    case kel::convert::Fault::OUTPUT:
        return STATUS_NOT_WRITTEN;
    case kel::convert::Fault::RECIPE:
        break;
    }
    return STATUS_USAGE;
}

} // namespace

Failure::Failure(const kel::convert::ConvertError& error)
    : Failure(statusOf(infoOf(error.code()).fault), error.subject(), error.what(), error.remedy()) {}

Failure currentFailure(const std::string& subject) {
    try {
        throw;
    } catch (const Failure& failure) {
        return failure;
    } catch (const kel::convert::ConvertError& error) {
        return Failure(error);
    } catch (const kel::importer::ExportError& error) {
        return Failure(STATUS_INPUT, subject, error.what(),
                       "\"kelsrc validate\" tells what is wrong with a file.");
    } catch (const kel::src::SrcError& error) {
        return Failure(STATUS_INPUT, subject, error.what());
    } catch (const std::bad_alloc&) {
        return Failure(STATUS_INPUT, subject, "needs more memory than there is");
    } catch (const std::exception& error) {
        return Failure(STATUS_NOT_WRITTEN, subject, std::string("unexpected: ") + error.what(),
                       "Please report this.");
    }
}

} // namespace kelsrc::cli
