#pragma once

/// Marks what the input model offers to other libraries; everything else stays hidden.
#define KEL_MESH_EXPORT __attribute__((visibility("default")))
