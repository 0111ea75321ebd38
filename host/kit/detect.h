// The file type identifier a host passes when it opens a file, decided from
// the ID3v2 tags at the head, the first MPEG audio frame after them and the
// ID3v1 trailer.
#ifndef KZ_HOST_DETECT_H
#define KZ_HOST_DETECT_H

#include "stream.h"

#include <cstdint>

namespace kzhost {

struct DetectedType {
    uint16_t fileType;
    bool audio;  // an MPEG audio frame was found
};

DetectedType DetectType(Source& source);

}  // namespace kzhost

#endif  // KZ_HOST_DETECT_H
