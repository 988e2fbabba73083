// Helpers shared by the fuzz targets: a reader that turns the fuzzer's bytes
// into bounded values, and the failure report used when a check does not hold.
#ifndef PREVIEWBOKEH_FUZZ_FUZZ_SUPPORT_H_
#define PREVIEWBOKEH_FUZZ_FUZZ_SUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace pbfuzz {

// Reads values from the front of the input. Past its end every read gives 0,
// so short inputs still describe a complete (small) case.
class Input {
 public:
  Input(const uint8_t *data, size_t size) : data_(data), size_(size) {}

  size_t remaining() const { return size_ - pos_; }

  uint8_t Byte() { return pos_ < size_ ? data_[pos_++] : 0; }

  uint16_t U16() { return static_cast<uint16_t>(Byte() | (Byte() << 8)); }

  uint32_t U32() {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v |= static_cast<uint32_t>(Byte()) << (8 * i);
    return v;
  }

  int32_t I32() { return static_cast<int32_t>(U32()); }

  bool Bool() { return (Byte() & 1) != 0; }

  // Uniform-ish value in lo..hi (inclusive, lo <= hi).
  int32_t Range(int32_t lo, int32_t hi) {
    const uint32_t span = static_cast<uint32_t>(static_cast<int64_t>(hi) - lo) + 1u;
    const uint32_t raw = span <= 256u ? Byte() : (span <= 65536u ? U16() : U32());
    return span == 0 ? static_cast<int32_t>(raw)
                     : static_cast<int32_t>(lo + static_cast<int64_t>(raw % span));
  }

  // One of the entries of a table.
  template <typename T, size_t N>
  T Pick(const T (&table)[N]) {
    return table[static_cast<size_t>(Range(0, static_cast<int32_t>(N) - 1))];
  }

  // Fills dst with the next bytes of the input, then with a simple sequence
  // seeded from them (keeps large buffers varied without large inputs).
  void Fill(uint8_t *dst, size_t n) {
    size_t i = 0;
    for (; i < n && pos_ < size_; ++i) dst[i] = data_[pos_++];
    uint32_t s = 0x9e3779b9u ^ static_cast<uint32_t>(i * 2654435761u);
    for (; i < n; ++i) {
      s ^= s << 13;
      s ^= s >> 17;
      s ^= s << 5;
      dst[i] = static_cast<uint8_t>(s >> 24);
    }
  }

 private:
  const uint8_t *data_;
  size_t size_;
  size_t pos_ = 0;
};

// Reports a broken invariant and stops: the fuzzer records the input.
[[noreturn]] inline void Fail(const char *what, long a = 0, long b = 0, long c = 0) {
  std::fprintf(stderr, "FUZZ CHECK FAILED: %s (%ld, %ld, %ld)\n", what, a, b, c);
  std::abort();
}

// Index of the first differing byte, or -1.
inline long FirstDifference(const void *a, const void *b, size_t n) {
  const auto *x = static_cast<const uint8_t *>(a);
  const auto *y = static_cast<const uint8_t *>(b);
  for (size_t i = 0; i < n; ++i) {
    if (x[i] != y[i]) return static_cast<long>(i);
  }
  return -1;
}

}  // namespace pbfuzz

#endif  // PREVIEWBOKEH_FUZZ_FUZZ_SUPPORT_H_
