// Kernel sources are compiled once per code path; the build defines VTQR_PATH to the path's
// name (u8 or n8) and VTQR_PATH_INDEX to its dispatch column. Wrap every kernel and helper
// that uses intrinsics in VTQR_PATH_BEGIN / VTQR_PATH_END so each compilation lands in its own
// namespace and the two never exchange code through the linker.
#ifndef VTQR_FRAME_CODE_PATH_H_
#define VTQR_FRAME_CODE_PATH_H_

#if !defined(VTQR_PATH) || !defined(VTQR_PATH_INDEX)
#error "kernel sources are built through vtqr_add_kernels(), which names the code path"
#endif

#define VTQR_PATH_BEGIN namespace vtqr::VTQR_PATH {
#define VTQR_PATH_END }

#endif  // VTQR_FRAME_CODE_PATH_H_
