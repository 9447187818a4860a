#pragma once

/// The whole input model: meshes, buffers, their transforms.
#include <kel/mesh/AttributeBuffer.h>
#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/DefaultIndexBuffer.h>
#include <kel/mesh/DefaultMesh.h>
#include <kel/mesh/Mesh.h>
#include <kel/mesh/QuantizeVec3.h>
#include <kel/mesh/Transforms.h>
#include <kel/mesh/detail/AttributeBufferDataView.h>
