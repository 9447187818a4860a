#pragma once

/// Marks what libkelSrc offers; everything else stays hidden.
#define KELSRC_EXPORT __attribute__((visibility("default")))
