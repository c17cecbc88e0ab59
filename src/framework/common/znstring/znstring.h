// Shared text: a counted, terminated block that copies share and a change splits off. Properties
// and values are cloned all the time, so a clone costs one atomic count and never copies text.
// `String` is narrow (UTF-8), `WideString` (widestring/widestring.h) is UTF-16.
//
// Every empty text is the one static empty block of its width. Copies may be used from different
// threads; one String object by one thread at a time.
#pragma once

#include <atomic>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "zn/types.h"

namespace zn {

template <typename Unit>
struct TextRep {
  std::atomic<u32> references;
  u32 length;
  Unit text[1];  // length units and a terminator
};

template <typename Unit>
class SharedText {
 public:
  using View = std::basic_string_view<Unit>;

  SharedText() noexcept : rep_(Empty()) {}
  explicit SharedText(View text) : rep_(Make(text)) {}
  // A null pointer gives the empty text.
  explicit SharedText(const Unit* text) : rep_(text == nullptr ? Empty() : Make(View(text))) {}
  SharedText(const SharedText& other) noexcept : rep_(Retain(other.rep_)) {}
  SharedText(SharedText&& other) noexcept : rep_(std::exchange(other.rep_, Empty())) {}
  ~SharedText() { Release(rep_); }

  SharedText& operator=(const SharedText& other) noexcept {
    Release(std::exchange(rep_, Retain(other.rep_)));
    return *this;
  }
  SharedText& operator=(SharedText&& other) noexcept {
    std::swap(rep_, other.rep_);
    return *this;
  }
  SharedText& operator=(View text) {
    Release(std::exchange(rep_, Make(text)));
    return *this;
  }

  [[nodiscard]] u32 Length() const noexcept { return rep_->length; }
  [[nodiscard]] bool IsEmpty() const noexcept { return rep_->length == 0; }
  [[nodiscard]] const Unit* CStr() const noexcept { return rep_->text; }
  [[nodiscard]] View Text() const noexcept { return View(rep_->text, rep_->length); }

  // The unit at an index, 0 outside the text.
  [[nodiscard]] Unit At(i32 index) const noexcept {
    return InRange(index) ? rep_->text[index] : Unit{0};
  }
  // No effect outside the text.
  void SetAt(i32 index, Unit unit) {
    if (!InRange(index)) return;
    SplitShare();
    rep_->text[index] = unit;
  }
  void Clear() noexcept { Release(std::exchange(rep_, Empty())); }
  void Append(Unit unit) { Append(View(&unit, 1)); }
  void Append(View more) {
    Rep* joined = Allocate(rep_->length + more.size());
    std::memcpy(joined->text, rep_->text, rep_->length * sizeof(Unit));
    if (!more.empty()) {
      std::memcpy(joined->text + rep_->length, more.data(), more.size() * sizeof(Unit));
    }
    Release(std::exchange(rep_, joined));
  }
  [[nodiscard]] static SharedText Concat(const SharedText& a, View b) {
    SharedText result(a);
    result.Append(b);
    return result;
  }

  // Whether both have one block, so that equality needs no look at the text.
  [[nodiscard]] bool SharesWith(const SharedText& other) const noexcept {
    return rep_ == other.rep_;
  }

  // Narrow and wide text compare by unit, as strcmp and its 16-bit twin do: by unsigned value.
  [[nodiscard]] int Compare(View other) const noexcept { return Text().compare(other); }
  friend bool operator==(const SharedText& a, const SharedText& b) noexcept {
    return a.rep_ == b.rep_ || a.Text() == b.Text();
  }
  friend bool operator==(const SharedText& a, View b) noexcept { return a.Text() == b; }
  friend bool operator==(const SharedText& a, const Unit* b) noexcept {
    return a.Text() == View(b);
  }
  friend auto operator<=>(const SharedText& a, const SharedText& b) noexcept {
    return a.Text() <=> b.Text();
  }
  friend auto operator<=>(const SharedText& a, View b) noexcept { return a.Text() <=> b; }

  // For holders that keep the bare block (a value of a property): ownership of one count.
  using Rep = TextRep<Unit>;
  [[nodiscard]] Rep* TakeRep() noexcept { return std::exchange(rep_, Empty()); }
  [[nodiscard]] static SharedText Adopt(Rep* rep) noexcept {
    SharedText text;
    text.rep_ = rep;
    return text;
  }
  [[nodiscard]] static Rep* Retain(Rep* rep) noexcept {
    if (rep != Empty()) rep->references.fetch_add(1, std::memory_order_relaxed);
    return rep;
  }
  static void Release(Rep* rep) noexcept {
    if (rep == Empty()) return;
    // The last holder need not pay for an atomic change.
    if (rep->references.load(std::memory_order_acquire) == 1 ||
        rep->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      ::operator delete(rep);
    }
  }
  // A block with room for `length` units, terminated; the text is the caller's to fill.
  [[nodiscard]] static Rep* Allocate(size_t length) {
    if (length > 0x7FFFFFFFu) throw std::bad_alloc();
    auto* rep = static_cast<Rep*>(::operator new(sizeof(Rep) + length * sizeof(Unit)));
    new (&rep->references) std::atomic<u32>(1);
    rep->length = static_cast<u32>(length);
    rep->text[length] = 0;
    return rep;
  }
  [[nodiscard]] static Rep* Make(View text) {
    if (text.empty()) return Retain(Empty());
    Rep* rep = Allocate(text.size());
    std::memcpy(rep->text, text.data(), text.size() * sizeof(Unit));
    return rep;
  }
  [[nodiscard]] static Rep* Empty() noexcept { return &empty_; }

 private:
  [[nodiscard]] bool InRange(i32 index) const noexcept {
    return index >= 0 && static_cast<u32>(index) < rep_->length;
  }
  // After it nobody else sees this object's block.
  void SplitShare() {
    if (rep_->references.load(std::memory_order_acquire) < 2) return;
    Release(std::exchange(rep_, Make(Text())));
  }

  static Rep empty_;
  Rep* rep_;
};

// Shared by every empty text of its width; its count is not kept.
template <typename Unit>
inline constinit TextRep<Unit> SharedText<Unit>::empty_{1, 0, {0}};

using String = SharedText<char>;

// Without regard to case, as ZnlstrcmpA and ZnlstrcmpW compare: -1, 0 or 1.
[[nodiscard]] int CompareNoCase(const String& a, const String& b) noexcept;

}  // namespace zn
