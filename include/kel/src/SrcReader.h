#pragma once

/// Everything that reads SRC files: opening them, decoding what they hold, reading them mesh by mesh, and
/// turning them back into what writers take. Each of these headers can be included on its own.

#include <kel/src/SrcDecode.h>
#include <kel/src/SrcFile.h>
#include <kel/src/SrcFit.h>
#include <kel/src/SrcJson.h>
#include <kel/src/SrcStream.h>
#include <kel/src/SrcToInput.h>
