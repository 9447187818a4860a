#pragma once

/// Marks what libkelSrcConvert offers; everything else stays hidden.
#define KEL_CONVERT_EXPORT __attribute__((visibility("default")))
