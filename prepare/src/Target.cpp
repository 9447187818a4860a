#include <kel/prepare/Target.h>

namespace kel::prepare {

const char* targetName(Target target) {
    switch (target) {
    case Target::PRESET_DEFAULT:
        return "default";
    case Target::PRESET_CMP1:
        return "CMP1";
    case Target::UNCOMPRESSED:
        return "uncompressed";
    case Target::POSITION_COMPRESSED:
        return "position";
    case Target::POSITION_NORMAL_COMPRESSED:
        return "position-normal";
    }
    return "unknown";
}

} // namespace kel::prepare
