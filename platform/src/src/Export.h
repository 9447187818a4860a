#pragma once

/// Marks what the SRC builder library offers; everything else stays hidden.
#define SRC_EXPORT __attribute__((visibility("default")))
