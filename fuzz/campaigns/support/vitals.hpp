// What a process holds: the figures that must stay flat.
#pragma once

#include <string>

namespace zal::campaign {

struct Vitals {
  long descriptors;
  long threads;
  long residentKib;
  long heapKib;  // what malloc has given out; 0 where a sanitizer has replaced it

  [[nodiscard]] std::string text() const;
};

Vitals vitals();

/// Resident memory at its highest, KiB, since the process began or forgetPeak().
long peakKib();
void forgetPeak();

/// False in a build whose sanitizer keeps freed memory back, so that its amount says nothing.
constexpr bool kMemoryIsTelling =
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    false;
#else
    true;
#endif

/// False under an emulator, too, whose translations grow beside the program's memory.
constexpr bool kResidentIsTelling =
#if defined(CAMPAIGN_IS_EMULATED)
    false;
#else
    kMemoryIsTelling;
#endif

/// Whether a process has grown since an earlier look, beyond what memory varies by.
bool hasGrown(const Vitals& early, const Vitals& late, long residentSlackKib);

}  // namespace zal::campaign
