// Helpers shared by the test suites.
#ifndef VTQR_TESTS_TEST_UTIL_H_
#define VTQR_TESTS_TEST_UTIL_H_

#include <gtest/gtest.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
// Marks bytes a kernel must neither read nor write; AddressSanitizer builds then fail at the
// first access. Elsewhere these do nothing, and tests check such bytes by their pattern.
#define VTQR_POISON(p, n) ASAN_POISON_MEMORY_REGION(p, n)
#define VTQR_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION(p, n)
#else
#define VTQR_POISON(p, n) ((void)(p), (void)(n))
#define VTQR_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "frame/dispatch.h"
#include "vtqcore.h"

namespace vtqr::test {

// The library's thread count for the lifetime of the object, then back to the default.
class ThreadCount {
 public:
  explicit ThreadCount(int count) { vtqSetNumThreads(count); }
  ~ThreadCount() { vtqSetNumThreads(0); }
};

// Both columns of the dispatch table.
inline constexpr CodePath kBothPaths[] = {kPathU8, kPathN8};

inline const char* PathName(CodePath path) { return path == kPathU8 ? "u8" : "n8"; }

// A test suite whose cases run once per code path, named Suite.Case/u8 and Suite.Case/n8:
//
//   class TriangleAccel : public PerPath {};
//   VTQR_INSTANTIATE_PER_PATH(TriangleAccel);
//
//   TEST_P(TriangleAccel, SizeQuery) {
//     EXPECT_EQ(kDispatchTable.TriangleAccelGetSize[path()](&size), vtqStsOk);
//   }
class PerPath : public ::testing::TestWithParam<CodePath> {
 protected:
  // The dispatch column this instance runs.
  static CodePath path() { return GetParam(); }
};

inline std::string PerPathName(const ::testing::TestParamInfo<CodePath>& info) {
  return PathName(info.param);
}

#define VTQR_INSTANTIATE_PER_PATH(Suite)                                           \
  INSTANTIATE_TEST_SUITE_P(, Suite, ::testing::ValuesIn(::vtqr::test::kBothPaths), \
                           ::vtqr::test::PerPathName)

inline uint32_t Bits(float value) { return std::bit_cast<uint32_t>(value); }
inline float FromBits(uint32_t bits) { return std::bit_cast<float>(bits); }

// "0x3F800000": AssertionResult streams every insertion separately, so std::hex would not stick.
inline std::string HexBits(float value) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(Bits(value)));
  return text;
}

// A float pattern no kernel produces by accident: written before a call whose failed check
// must leave the output untouched.
inline constexpr uint32_t kSentinelBits = 0x7FA5A5A5;  // a signalling-NaN payload
inline float Sentinel() { return FromBits(kSentinelBits); }

// Bit-exact comparison of two float arrays, reporting the first mismatching element.
inline ::testing::AssertionResult SameBits(const float* expected, const float* actual,
                                           size_t count) {
  for (size_t i = 0; i < count; ++i) {
    if (Bits(expected[i]) != Bits(actual[i])) {
      return ::testing::AssertionFailure()
             << "element " << i << ": expected " << expected[i] << " (" << HexBits(expected[i])
             << "), got " << actual[i] << " (" << HexBits(actual[i]) << ")";
    }
  }
  return ::testing::AssertionSuccess();
}

// A float buffer with a chosen misalignment from a 64-byte boundary, for driving kernels down
// their aligned and unaligned paths. Elements past `size` are padding, never handed out.
class AlignedFloats {
 public:
  AlignedFloats(size_t size, size_t offsetFloats = 0)
      : storage_(size + offsetFloats + 16), size_(size) {
    auto address = reinterpret_cast<uintptr_t>(storage_.data());
    size_t skip = ((64 - address % 64) % 64) / sizeof(float) + offsetFloats;
    data_ = storage_.data() + skip;
  }
  float* data() { return data_; }
  const float* data() const { return data_; }
  size_t size() const { return size_; }
  float& operator[](size_t i) { return data_[i]; }
  float* begin() { return data_; }
  float* end() { return data_ + size_; }

 private:
  std::vector<float> storage_;
  float* data_;
  size_t size_;
};

// Path of a mesh in the shared data folder, or empty when the folder is absent.
inline std::string SharedDataFile(const char* name) {
  std::filesystem::path path = std::filesystem::path(VTQR_SHARED_DATA_DIR) / name;
  return std::filesystem::exists(path) ? path.string() : std::string();
}

}  // namespace vtqr::test

#endif  // VTQR_TESTS_TEST_UTIL_H_
