#pragma once

/// Everything that a caller of the writers needs.
#include <kel/src/DefaultSrcWriter.h>
#include <kel/src/MetaDataPtr.h>
#include <kel/src/SrcWriter.h>
#include <kel/src/SrcWriterInput.h>
