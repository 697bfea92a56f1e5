#include "Platform/Foundation/Value.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <new>

namespace kiv {

namespace detail {

using References = std::atomic<std::uint32_t>;

/// A string's header; its characters follow in the same allocation.
struct StringBlock {
  References references{1};
  std::size_t size = 0;

  [[nodiscard]] char* characters() noexcept { return reinterpret_cast<char*>(this + 1); }
  static StringBlock* make(std::string_view text) {
    void* memory = ::operator new(sizeof(StringBlock) + text.size());
    auto* block = new (memory) StringBlock;
    block->size = text.size();
    if (!text.empty()) std::memcpy(block->characters(), text.data(), text.size());
    return block;
  }
  static void destroy(StringBlock* block) noexcept {
    block->~StringBlock();
    ::operator delete(block);
  }
};

/// What arrays and dictionaries have in common.
struct ContainerBlock {
  References references{1};
  ContainerBlock* nextDying = nullptr;

  virtual ~ContainerBlock() = default;

  /// Destroys a block that nobody holds any more. The containers that it was the last to hold are
  /// destroyed after it, not within, so that no depth of nesting exhausts the stack.
  static void destroy(ContainerBlock* block) noexcept {
    thread_local ContainerBlock* dying = nullptr;
    thread_local bool isDestroying = false;
    block->nextDying = std::exchange(dying, block);
    if (std::exchange(isDestroying, true)) return;
    while (ContainerBlock* const next = dying) {
      dying = next->nextDying;
      delete next;
    }
    isDestroying = false;
  }
};

struct ArrayBlock : ContainerBlock {
  std::vector<Value> values;
};

struct DictionaryBlock : ContainerBlock {
  std::vector<Dictionary::Entry> entries;
  /// Positions by key, only in a dictionary too large to scan; the keys point into the entries. A
  /// tree, since nobody can choose keys that make it slow, as can be done with a hash.
  std::unique_ptr<std::map<std::string_view, std::size_t>> positions;

  [[nodiscard]] std::size_t position(std::string_view key) const noexcept {
    if (positions) {
      const auto found = positions->find(key);
      return found == positions->end() ? entries.size() : found->second;
    }
    std::size_t index = 0;
    while (index < entries.size() && entries[index].key() != key)
      ++index;
    return index;
  }

  void append(const Value& key, Value value) {
    constexpr std::size_t largestScan = 16;
    entries.emplace_back(key, std::move(value));
    if (positions) {
      positions->emplace(entries.back().key(), entries.size() - 1);
    } else if (entries.size() > largestScan) {
      indexEntries();
    }
  }

  void remove(std::string_view key) {
    const std::size_t gone = position(key);
    if (positions) {
      positions->erase(key);  // first: its key points into the entry that is about to be freed
      for (auto& indexed : *positions) {
        if (indexed.second > gone) --indexed.second;
      }
    }
    entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(gone));
  }

  void indexEntries() {
    positions = std::make_unique<std::map<std::string_view, std::size_t>>();
    for (std::size_t index = 0; index < entries.size(); ++index) {
      positions->emplace(entries[index].key(), index);
    }
  }
};

namespace {

template <class Block>
void retain(Block* block) noexcept {
  if (block) block->references.fetch_add(1, std::memory_order_relaxed);
}

template <class Block>
void release(Block* block) noexcept {
  if (block && block->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    Block::destroy(block);
  }
}

/// Makes `block` one that nobody else holds, ready to be changed.
template <class Block, class Copy>
Block& makeUnique(Block*& block, Copy copy) {
  if (!block) {
    block = new Block;
  } else if (block->references.load(std::memory_order_acquire) != 1) {
    Block* own = copy(*block);
    release(block);
    block = own;
  }
  return *block;
}

}  // namespace
}  // namespace detail

namespace {

const Value& nullValue() noexcept {
  static const Value value;
  return value;
}

constexpr double twoTo64 = 18446744073709551616.0;
constexpr double twoTo63 = 9223372036854775808.0;

std::uint64_t unsignedFromDouble(double number) noexcept {
  if (std::isnan(number)) return 0;
  if (number >= twoTo64) return std::numeric_limits<std::uint64_t>::max();
  if (number >= 0) return static_cast<std::uint64_t>(number);
  if (number <= -twoTo63) return std::uint64_t{1} << 63;
  return static_cast<std::uint64_t>(static_cast<std::int64_t>(number));
}

}  // namespace

// --- Value ---------------------------------------------------------------------------------------

Value::Value(std::string_view string) : kind_(Kind::string) {
  bits_.string = detail::StringBlock::make(string);
}

Value::Value(Array array) noexcept : kind_(Kind::array) {
  bits_.array = std::exchange(array.block_, nullptr);
}

Value::Value(Dictionary dictionary) noexcept : kind_(Kind::dictionary) {
  bits_.dictionary = std::exchange(dictionary.block_, nullptr);
}

Value::Value(const Value& other) noexcept : kind_(other.kind_), bits_(other.bits_) {
  retain();
}

// `other` may be an element of what this value is about to let go of, so its contents are taken
// first.
Value& Value::operator=(const Value& other) noexcept {
  return *this = Value(other);
}

Value& Value::operator=(Value&& other) noexcept {
  Value taken(std::move(other));
  std::swap(kind_, taken.kind_);
  std::swap(bits_, taken.bits_);
  return *this;
}

Value::~Value() {
  release();
}

void Value::retain() const noexcept {
  if (kind_ == Kind::string) detail::retain(bits_.string);
  if (kind_ == Kind::array) detail::retain(bits_.array);
  if (kind_ == Kind::dictionary) detail::retain(bits_.dictionary);
}

void Value::release() noexcept {
  if (kind_ == Kind::string) detail::release(bits_.string);
  if (kind_ == Kind::array) detail::release(bits_.array);
  if (kind_ == Kind::dictionary) detail::release(bits_.dictionary);
}

bool Value::boolean() const noexcept {
  return kind_ == Kind::boolean ? bits_.boolean : floating() != 0;
}

std::uint64_t Value::unsignedInteger() const noexcept {
  switch (kind_) {
    case Kind::boolean:
      return bits_.boolean ? 1 : 0;
    case Kind::signedInteger:
      return static_cast<std::uint64_t>(bits_.signedInteger);
    case Kind::unsignedInteger:
      return bits_.unsignedInteger;
    case Kind::floating:
      return unsignedFromDouble(bits_.floating);
    default:
      return 0;
  }
}

double Value::floating() const noexcept {
  switch (kind_) {
    case Kind::boolean:
      return bits_.boolean ? 1 : 0;
    case Kind::signedInteger:
      return static_cast<double>(bits_.signedInteger);
    case Kind::unsignedInteger:
      return static_cast<double>(bits_.unsignedInteger);
    case Kind::floating:
      return bits_.floating;
    default:
      return 0;
  }
}

float Value::singlePrecision() const noexcept {
  constexpr double largest = std::numeric_limits<float>::max();
  const double number = floating();
  if (number > largest) return std::numeric_limits<float>::max();
  if (number < -largest) return std::numeric_limits<float>::lowest();
  return static_cast<float>(number);
}

std::string_view Value::stringView() const noexcept {
  if (kind_ != Kind::string) return {};
  return {bits_.string->characters(), bits_.string->size};
}

// An Array or a Dictionary is nothing but the pointer to its block, so the pointer that a value
// holds can be looked at as one.
const Array& Value::array() const noexcept {
  static_assert(sizeof(Array) == sizeof(detail::ArrayBlock*));
  static const Array none;
  return kind_ == Kind::array ? reinterpret_cast<const Array&>(bits_.array) : none;
}

const Dictionary& Value::dictionary() const noexcept {
  static_assert(sizeof(Dictionary) == sizeof(detail::DictionaryBlock*));
  static const Dictionary none;
  return kind_ == Kind::dictionary ? reinterpret_cast<const Dictionary&>(bits_.dictionary) : none;
}

bool operator==(const Value& a, const Value& b) noexcept {
  using Kind = Value::Kind;
  if (a.isNumber() && b.isNumber()) {
    if (a.kind_ == Kind::floating || b.kind_ == Kind::floating) return a.floating() == b.floating();
    const bool aNegative = a.kind_ == Kind::signedInteger;
    const bool bNegative = b.kind_ == Kind::signedInteger;
    return aNegative == bNegative && a.unsignedInteger() == b.unsignedInteger();
  }
  if (a.kind_ != b.kind_) return false;
  switch (a.kind_) {
    case Kind::string:
      return a.stringView() == b.stringView();
    case Kind::array:
      return a.array() == b.array();
    case Kind::dictionary:
      return a.dictionary() == b.dictionary();
    default:
      return true;
  }
}

// --- Array ---------------------------------------------------------------------------------------

Array::Array(std::initializer_list<Value> values) {
  if (values.size() != 0) own().assign(values);
}

Array::Array(const Array& other) noexcept : block_(other.block_) {
  detail::retain(block_);
}

Array& Array::operator=(Array other) noexcept {
  std::swap(block_, other.block_);
  return *this;
}

Array::~Array() {
  detail::release(block_);
}

std::vector<Value>& Array::own() {
  return detail::makeUnique(block_,
                            [](const detail::ArrayBlock& shared) {
                              auto copy = std::make_unique<detail::ArrayBlock>();
                              copy->values = shared.values;
                              return copy.release();
                            })
      .values;
}

std::size_t Array::size() const noexcept {
  return block_ ? block_->values.size() : 0;
}

const Value& Array::operator[](std::size_t index) const noexcept {
  return index < size() ? block_->values[index] : nullValue();
}

const Value* Array::begin() const noexcept {
  return block_ ? block_->values.data() : nullptr;
}

const Value* Array::end() const noexcept {
  return begin() + size();
}

void Array::append(Value value) {
  own().push_back(std::move(value));
}

void Array::reserve(std::size_t capacity) {
  own().reserve(capacity);
}

bool operator==(const Array& a, const Array& b) noexcept {
  if (a.block_ == b.block_) return true;
  if (a.size() != b.size()) return false;
  for (std::size_t index = 0; index < a.size(); ++index) {
    if (!(a[index] == b[index])) return false;
  }
  return true;
}

// --- Dictionary ----------------------------------------------------------------------------------

Dictionary::Dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries) {
  for (const auto& [key, value] : entries)
    set(key, value);
}

Dictionary::Dictionary(const Dictionary& other) noexcept : block_(other.block_) {
  detail::retain(block_);
}

Dictionary& Dictionary::operator=(Dictionary other) noexcept {
  std::swap(block_, other.block_);
  return *this;
}

Dictionary::~Dictionary() {
  detail::release(block_);
}

detail::DictionaryBlock& Dictionary::own() {
  return detail::makeUnique(block_, [](const detail::DictionaryBlock& shared) {
    auto copy = std::make_unique<detail::DictionaryBlock>();
    copy->entries = shared.entries;
    if (shared.positions) copy->indexEntries();
    return copy.release();
  });
}

std::size_t Dictionary::size() const noexcept {
  return block_ ? block_->entries.size() : 0;
}

const Value* Dictionary::find(std::string_view key) const noexcept {
  if (!block_) return nullptr;
  const std::size_t position = block_->position(key);
  return position < block_->entries.size() ? &block_->entries[position].value : nullptr;
}

const Value& Dictionary::operator[](std::string_view key) const noexcept {
  const Value* value = find(key);
  return value ? *value : nullValue();
}

const Dictionary::Entry* Dictionary::begin() const noexcept {
  return block_ ? block_->entries.data() : nullptr;
}

const Dictionary::Entry* Dictionary::end() const noexcept {
  return begin() + size();
}

void Dictionary::set(std::string_view key, Value value) {
  setWithSharedKey(Value(key), std::move(value));
}

void Dictionary::setWithSharedKey(const Value& key, Value value) {
  detail::DictionaryBlock& block = own();
  const std::size_t position = block.position(key.stringView());
  if (position < block.entries.size()) {
    block.entries[position].value = std::move(value);
  } else {
    block.append(key, std::move(value));
  }
}

void Dictionary::remove(std::string_view key) {
  if (contains(key)) own().remove(key);
}

bool operator==(const Dictionary& a, const Dictionary& b) noexcept {
  if (a.block_ == b.block_) return true;
  if (a.size() != b.size()) return false;
  for (const auto& entry : a) {
    const Value* other = b.find(entry.key());
    if (!other || !(entry.value == *other)) return false;
  }
  return true;
}

}  // namespace kiv
