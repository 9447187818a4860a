#pragma once

/// Marks what libkelSrcImporter offers; everything else stays hidden.
#define KEL_IMPORTER_EXPORT __attribute__((visibility("default")))
