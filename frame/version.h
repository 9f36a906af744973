// Strings both version records point at.
#ifndef VTQR_FRAME_VERSION_H_
#define VTQR_FRAME_VERSION_H_

namespace vtqr {
extern const char kVersionText[];
extern const char kBuildDate[];
}  // namespace vtqr

#endif  // VTQR_FRAME_VERSION_H_
