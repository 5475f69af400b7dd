// The bits of the per-UPS status words, and their updates. The words are plain exported ints
// that the event wait reads on another host thread while the watch changes them; every change
// is one atomic read-modify-write, so no bit another thread sets in between is lost.
#pragma once

#include <atomic>

namespace snmplumi {

inline constexpr int kOnBattery = 0x10;      // word 0: on battery, noticed
inline constexpr int kPowerFailWait = 0x08;  // word 0: on battery longer than the wait
inline constexpr int kOutOfService = 0x80;   // word 1: unused slot, output off, or reported

inline constexpr char kUnusedSlot[] = "127.0.0.1";

inline int LoadWord(int &word) {
  return std::atomic_ref<int>(word).load(std::memory_order_relaxed);
}
inline void SetBits(int &word, int bits) {
  std::atomic_ref<int>(word).fetch_or(bits, std::memory_order_relaxed);
}
inline void ClearBits(int &word, int bits) {
  std::atomic_ref<int>(word).fetch_and(~bits, std::memory_order_relaxed);
}
inline void StoreWord(int &word, int value) {
  std::atomic_ref<int>(word).store(value, std::memory_order_relaxed);
}

}  // namespace snmplumi
