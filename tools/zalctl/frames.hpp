// Cuts a byte stream into whole images. One thread at a time.
#pragma once

#include <zal/zal_tpl.h>

#include <cstddef>
#include <functional>
#include <string_view>

namespace zalctl {

class Frames {
 public:
  using OnImage = std::function<void(std::string_view image)>;

  /// The longest image that a peer may send: what is pending is kept in memory.
  static constexpr std::size_t kMaxImage = 64U << 20U;

  explicit Frames(std::size_t maxImage = kMaxImage) : maxImage_{maxImage} {}
  ~Frames() { forget(); }
  Frames(const Frames&) = delete;
  Frames& operator=(const Frames&) = delete;

  /// Takes the next bytes of the stream, and has `onImage` called for each image that is complete now. Returns how many
  /// bytes, the last ones of the stream so far, are no image and were dropped: 0 when all is well.
  std::size_t feed(std::string_view bytes, const OnImage& onImage);
  /// The bytes of an image that is not complete.
  [[nodiscard]] std::size_t pending() const;

 private:
  void forget();

  const std::size_t maxImage_;
  tpl_gather_state* state_ = nullptr;
};

/// Has the reports of the engine printed on standard error without what a terminal would act on: they quote peers.
void printEngineReports();

}  // namespace zalctl
