// clPtrList and clStringList.

#include "support/clList.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr int kMaxGrowth = 500000;
// FromMultiString reads at most this many bytes of a block.
constexpr size_t kMultiStringByteCap = 2000000000;

}  // namespace

clPtrListBase::clPtrListBase(clPtrListBase&& other) noexcept { *this = std::move(other); }

clPtrListBase& clPtrListBase::operator=(clPtrListBase&& other) noexcept {
    if (this == &other) return *this;
    heap_ = std::move(other.heap_);
    count_ = other.count_;
    capacity_ = other.capacity_;
    growth_ = other.growth_;
    std::copy(other.inline_, other.inline_ + kInline, inline_);
    other.Clear();
    return *this;
}

void clPtrListBase::Grow() {
    const int newCapacity = capacity_ + growth_;
    auto grown = std::make_unique<void*[]>(static_cast<size_t>(newCapacity));
    std::copy(items(), items() + count_, grown.get());
    heap_ = std::move(grown);
    capacity_ = newCapacity;
    growth_ = std::min(growth_ * 2, kMaxGrowth);
}

void clPtrListBase::Add(void* item) { Insert(count_, item); }

void clPtrListBase::Insert(int index, void* item) {
    index = std::clamp(index, 0, count_);
    if (count_ == capacity_) Grow();
    void** slots = items();
    std::copy_backward(slots + index, slots + count_, slots + count_ + 1);
    slots[index] = item;
    ++count_;
}

void clPtrListBase::RemoveAt(int index) {
    if (index < 0 || index >= count_) return;
    void** slots = items();
    std::copy(slots + index + 1, slots + count_, slots + index);
    --count_;
}

void clPtrListBase::Clear() {
    heap_.reset();
    count_ = 0;
    capacity_ = kInline;
    growth_ = 32;
    std::fill(inline_, inline_ + kInline, nullptr);
}

clStringList& clStringList::operator=(const clStringList& other) {
    if (this == &other) return *this;
    Clear();
    AppendCopies(other);
    return *this;
}

void clStringList::AddCopy(const clString& source, uint64_t tag) {
    auto copy = std::make_unique<clString>(source);
    copy->tag = tag;
    items_.push_back(std::move(copy));
}

void clStringList::AddMove(clString&& source) { items_.push_back(std::make_unique<clString>(std::move(source))); }

void clStringList::Clear() { items_.clear(); }

void clStringList::AppendCopies(const clStringList& other) {
    const int count = other.Count();   // fixed first: `other` may be this list
    for (int i = 0; i < count; ++i) items_.push_back(std::make_unique<clString>(other[i]));
}

void clStringList::TakeAll(clStringList& other) {
    if (this == &other) return;
    AppendCopies(other);
    other.Clear();
}

void clStringList::FromMultiString(const char16_t* block) {
    Clear();
    if (block == nullptr) return;
    const size_t maxUnits = kMultiStringByteCap / sizeof(char16_t);
    size_t offset = 0;
    while (offset < maxUnits) {
        const char16_t* entry = block + offset;
        size_t length = 0;
        while (offset + length < maxUnits && entry[length] != 0) ++length;
        if (offset + length == maxUnits) return;   // the cap cut this entry off
        if (length == 0) return;                   // the empty string ends the block
        const std::u16string_view text(entry, length);
        if (text == u"[Empty]") {
            AddMove(clString());
        } else {
            AddMove(clString(text));
        }
        offset += length + 1;
    }
}

void clStringList::Split(const clString& text) {
    const std::u16string whole(text.View());   // `text` may be an entry of this list
    Clear();
    if (whole.empty()) return;
    size_t start = 0;
    for (;;) {
        const size_t cr = whole.find(u'\r', start);
        if (cr == std::u16string::npos) {
            AddMove(clString(std::u16string_view(whole).substr(start)));
            return;
        }
        AddMove(clString(std::u16string_view(whole).substr(start, cr - start)));
        start = cr + 1;
    }
}
