// Records that are found by a key in constant time: an index through the records themselves, and an owning list with
// such an index. What a record needs is a member `IndexLink<Record> link` and a function `key()`, whose result
// std::hash takes; in a list also the pointers `next` and `previous`. Neither is safe for threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <utility>

#include "support/invariant.hpp"

namespace zal {

/// What an index keeps in each of its records.
template <class Record>
struct IndexLink {
  std::size_t hash;
  Record* sameBucket;  // the next older one
};

/// Owns no record. Several may have the same key: the newest is found first. It never fails: without memory it is
/// slower, no more. An empty one has no memory of its own.
template <class Record>
class Index {
 public:
  using Key = decltype(std::declval<const Record&>().key());

  Index() = default;
  Index(const Index&) = delete;
  Index& operator=(const Index&) = delete;

  /// The newest record of the key, or null.
  [[nodiscard]] Record* find(const Key& key) const noexcept {
    const std::size_t hash = std::hash<Key>{}(key);
    Record* record = bucketOf(hash);
    while (record != nullptr && (record->link.hash != hash || !(record->key() == key)))
      record = record->link.sameBucket;
    return record;
  }

  /// The key must not change from here on.
  void add(Record& record) noexcept {
    constexpr std::size_t kMostOfBucket = 2;
    if (++count_ > bucketCount_ * kMostOfBucket) widen();
    record.link.hash = std::hash<Key>{}(record.key());
    push(record);
  }

  /// Takes out a record that is in.
  void remove(Record& record) noexcept {
    ZAL_INVARIANT(count_ > 0);
    Record** place = &bucketOf(record.link.hash);
    while (*place != &record) place = &(*place)->link.sameBucket;
    *place = record.link.sameBucket;
    if (--count_ == 0) clear();
  }

  void clear() noexcept {
    wide_.reset();
    only_ = nullptr;
    buckets_ = &only_;
    bucketCount_ = 1;
    count_ = 0;
  }

 private:
  /// std::hash leaves numbers and addresses as they are: this spreads them over all bits.
  [[nodiscard]] Record*& bucketOf(std::size_t hash) const noexcept {
    constexpr std::uint64_t kGoldenRatio = 0x9E3779B97F4A7C15;
    const auto spread = static_cast<std::size_t>(hash * kGoldenRatio >> 32U);
    return buckets_[spread & (bucketCount_ - 1)];
  }

  void push(Record& record) noexcept {
    Record*& newest = bucketOf(record.link.hash);
    record.link.sameBucket = std::exchange(newest, &record);
  }

  /// Records of the same key keep their order: each bucket is turned round and then pushed from its oldest on.
  void widen() noexcept {
    constexpr std::size_t kFactor = 4;
    const std::size_t count = bucketCount_ * kFactor;
    std::unique_ptr<Record* []> wider { new (std::nothrow) Record* [count] {} };
    if (!wider) return;
    Record* oldest = nullptr;
    for (std::size_t i = 0; i < bucketCount_; ++i)
      for (Record* record = buckets_[i]; record != nullptr;) {
        Record* const older = std::exchange(record->link.sameBucket, oldest);
        oldest = std::exchange(record, older);
      }
    wide_ = std::move(wider);
    buckets_ = wide_.get();
    bucketCount_ = count;
    while (oldest != nullptr) push(*std::exchange(oldest, oldest->link.sameBucket));
  }

  Record* only_ = nullptr;  // the one bucket of a small index
  std::unique_ptr<Record*[]> wide_;
  Record** buckets_ = &only_;
  std::size_t bucketCount_ = 1;  // a power of two
  std::size_t count_ = 0;
};

/// An owning list, newest first, with an index beside it. Whoever has read the head may walk on without a lock as long
/// as nothing is removed: `next` never changes meanwhile.
template <class Record>
class IndexedList {
 public:
  IndexedList() = default;
  IndexedList(const IndexedList&) = delete;
  IndexedList& operator=(const IndexedList&) = delete;
  ~IndexedList() {
    for (Record* record = release(); record != nullptr;) {
      const std::unique_ptr<Record> last{record};
      record = record->next;
    }
  }

  [[nodiscard]] Record* head() const noexcept { return head_; }

  /// The newest record of the key, or null.
  [[nodiscard]] Record* find(const typename Index<Record>::Key& key) const noexcept { return index_.find(key); }

  void push(std::unique_ptr<Record> record) noexcept {
    ZAL_INVARIANT(head_ == nullptr || head_->previous == nullptr);
    index_.add(*record);
    record->previous = nullptr;
    record->next = head_;
    if (head_ != nullptr) head_->previous = record.get();
    head_ = record.release();
  }

  /// Takes out a record that is in.
  std::unique_ptr<Record> remove(Record& record) noexcept {
    ZAL_INVARIANT((record.previous != nullptr ? record.previous->next : head_) == &record);
    ZAL_INVARIANT(record.next == nullptr || record.next->previous == &record);
    index_.remove(record);
    (record.previous != nullptr ? record.previous->next : head_) = record.next;
    if (record.next != nullptr) record.next->previous = record.previous;
    return std::unique_ptr<Record>{&record};
  }

  /// Gives the records up without freeing them.
  Record* release() noexcept {
    index_.clear();
    return std::exchange(head_, nullptr);
  }

 private:
  Record* head_ = nullptr;
  Index<Record> index_;
};

}  // namespace zal
