#pragma once

/// Marks what libkelSrcPrepare offers; everything else stays hidden.
#define KEL_PREPARE_EXPORT __attribute__((visibility("default")))
