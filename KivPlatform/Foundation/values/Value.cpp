// Values, arrays and dictionaries share reference-counted blocks and copy them on write, so that a
// query can return copies of a thousand resources at the cost of reference counts. Nothing here
// recurses, since a document from a server may be nested to any depth.

#include "KivPlatform/Foundation/values/Value.h"

#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <new>

namespace kiv {

namespace detail {

using References = std::atomic<std::uint32_t>;

/// Allocates a block of a string: the header, followed by the characters.
template <class Block>
Block* makeWithCharacters(std::string_view text) {
  void* memory = ::operator new(sizeof(Block) + text.size());
  auto* block = new (memory) Block;
  if (!text.empty())
    std::memcpy(static_cast<char*>(memory) + sizeof(Block), text.data(), text.size());
  return block;
}

/// Blocks of strings have no destroy() of their own.
template <class Block>
void destroy(Block* block) noexcept {
  if constexpr (requires { Block::destroy(block); }) {
    Block::destroy(block);
  } else {
    block->~Block();
    ::operator delete(block);
  }
}

/// The base of the blocks of arrays and dictionaries.
struct ContainerBlock {
  References references{1};
  ContainerBlock* nextDying = nullptr;

  virtual ~ContainerBlock() = default;

  /// Destroys a block without references. Containers to which it had the last reference are
  /// destroyed afterwards, not within its destructor, so that deep nesting cannot exhaust the
  /// stack.
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
  ArrayBlock() = default;
  ~ArrayBlock() override { handle.block_ = nullptr; }

  ArrayBlock* copy() const {
    auto block = std::make_unique<ArrayBlock>();
    block->values = values;
    return block.release();
  }

  std::vector<Value> values;
  /// What Value::array() refers to. It does not count as a reference to the block.
  Array handle{this};
};

struct DictionaryBlock : ContainerBlock {
  DictionaryBlock() = default;
  ~DictionaryBlock() override { handle.block_ = nullptr; }

  std::vector<Dictionary::Entry> entries;
  /// What Value::dictionary() refers to. It does not count as a reference to the block.
  Dictionary handle{this};
  /// Positions by key, only in a dictionary too large to scan; the keys point into the entries. A
  /// tree rather than a hash table, because a server could choose keys that collide.
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

  void append(Dictionary::Key key, Value value) {
    constexpr std::size_t largestScan = 16;
    entries.emplace_back(std::move(key), std::move(value));
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

  DictionaryBlock* copy() const {
    auto block = std::make_unique<DictionaryBlock>();
    block->entries = entries;
    if (positions) block->indexEntries();
    return block.release();
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
    destroy(block);
  }
}

/// Makes `block` unshared, so that it can be changed.
template <class Block>
Block& makeUnique(Block*& block) {
  if (!block) {
    block = new Block;
  } else if (block->references.load(std::memory_order_acquire) != 1) {
    Block* own = block->copy();
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

static_assert(sizeof(Value) == 16);

Value::Value(std::string_view string) : Value() {
  if (string.size() <= longestInPlace) {
    small_ = {Kind::string, static_cast<std::uint8_t>(string.size()), {}};
    if (!string.empty()) std::memcpy(small_.characters, string.data(), string.size());
  } else {
    auto* const block = detail::makeWithCharacters<detail::StringBlock>(string);
    large_ = {Kind::string,
              inBlock,
              static_cast<std::uint16_t>(string.size() >> 32),
              static_cast<std::uint32_t>(string.size()),
              {.string = block}};
  }
}

Value::Value(Array array) noexcept
    : Value(Kind::array, {.array = std::exchange(array.block_, nullptr)}, inBlock) {}

Value::Value(Dictionary dictionary) noexcept
    : Value(Kind::dictionary, {.dictionary = std::exchange(dictionary.block_, nullptr)}, inBlock) {}

void Value::retain() const noexcept {
  if (isString()) detail::retain(large_.bits.string);
  if (isArray()) detail::retain(large_.bits.array);
  if (isDictionary()) detail::retain(large_.bits.dictionary);
}

void Value::release() noexcept {
  if (isString()) detail::release(large_.bits.string);
  if (isArray()) detail::release(large_.bits.array);
  if (isDictionary()) detail::release(large_.bits.dictionary);
}

bool Value::boolean() const noexcept {
  return kind() == Kind::boolean ? large_.bits.boolean : floating() != 0;
}

std::int64_t Value::signedInteger() const noexcept {
  constexpr auto largest = std::numeric_limits<std::int64_t>::max();
  if (kind() == Kind::floating) {
    const double number = large_.bits.floating;
    if (number >= twoTo63) return largest;
    return static_cast<std::int64_t>(unsignedFromDouble(number));
  }
  const std::uint64_t pattern = unsignedInteger();
  const bool isTooLarge = kind() == Kind::unsignedInteger && pattern > std::uint64_t{largest};
  return isTooLarge ? largest : static_cast<std::int64_t>(pattern);
}

std::uint64_t Value::unsignedInteger() const noexcept {
  switch (kind()) {
    case Kind::boolean:
      return large_.bits.boolean ? 1 : 0;
    case Kind::signedInteger:
    case Kind::unsignedInteger:
      return large_.bits.unsignedInteger;
    case Kind::floating:
      return unsignedFromDouble(large_.bits.floating);
    default:
      return 0;
  }
}

double Value::floating() const noexcept {
  switch (kind()) {
    case Kind::boolean:
      return large_.bits.boolean ? 1 : 0;
    case Kind::signedInteger:
      return static_cast<double>(static_cast<std::int64_t>(large_.bits.unsignedInteger));
    case Kind::unsignedInteger:
      return static_cast<double>(large_.bits.unsignedInteger);
    case Kind::floating:
      return large_.bits.floating;
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

const Array& Value::array() const& noexcept {
  static const Array none;
  return isArray() && large_.bits.array ? large_.bits.array->handle : none;
}

const Dictionary& Value::dictionary() const& noexcept {
  static const Dictionary none;
  return isDictionary() && large_.bits.dictionary ? large_.bits.dictionary->handle : none;
}

namespace {

/// Compares values. Nested containers wait in a list, so that deep nesting cannot exhaust the
/// stack.
class Comparison {
 public:
  bool areEqual(const Value& a, const Value& b) { return maybeEqual(a, b) && areWaitingEqual(); }
  template <class Container>
  bool areEqual(const Container& a, const Container& b) {
    return haveEqualItems(a, b) && areWaitingEqual();
  }

 private:
  bool areWaitingEqual() {
    while (!waiting_.empty()) {
      const auto [a, b] = waiting_.back();
      waiting_.pop_back();
      const bool areEqual = a->isArray() ? haveEqualItems(a->array(), b->array())
                                         : haveEqualItems(a->dictionary(), b->dictionary());
      if (!areEqual) return false;
    }
    return true;
  }

  /// False if the two differ. True if they are equal, not counting the containers that it puts on
  /// the list.
  bool maybeEqual(const Value& a, const Value& b) {
    if (a.isNumber() && b.isNumber()) return areNumbersEqual(a, b);
    if (a.kind() != b.kind()) return false;
    if (a.isString()) return a.stringView() == b.stringView();
    if ((a.isArray() || a.isDictionary()) && !areOne(a, b)) waiting_.emplace_back(&a, &b);
    return true;
  }

  /// True for copies of one container, which share their contents.
  static bool areOne(const Value& a, const Value& b) {
    return a.isArray() ? a.array().begin() == b.array().begin()
                       : a.dictionary().begin() == b.dictionary().begin();
  }

  static bool areNumbersEqual(const Value& a, const Value& b) {
    using Kind = Value::Kind;
    if (a.kind() == Kind::floating || b.kind() == Kind::floating)
      return a.floating() == b.floating();
    const bool aNegative = a.kind() == Kind::signedInteger;
    const bool bNegative = b.kind() == Kind::signedInteger;
    return aNegative == bNegative && a.unsignedInteger() == b.unsignedInteger();
  }

  bool haveEqualItems(const Array& a, const Array& b) {
    if (a.size() != b.size()) return false;
    if (a.begin() == b.begin()) return true;
    for (std::size_t index = 0; index < a.size(); ++index) {
      if (!maybeEqual(a[index], b[index])) return false;
    }
    return true;
  }

  bool haveEqualItems(const Dictionary& a, const Dictionary& b) {
    if (a.size() != b.size()) return false;
    if (a.begin() == b.begin()) return true;
    for (const auto& entry : a) {
      const Value* const other = b.find(entry.key());
      if (!other || !maybeEqual(entry.value, *other)) return false;
    }
    return true;
  }

  std::vector<std::pair<const Value*, const Value*>> waiting_;
};

}  // namespace

bool operator==(const Value& a, const Value& b) {
  return Comparison().areEqual(a, b);
}

// --- Values within values ------------------------------------------------------------------------

const Value* Value::find(const ValueStep& step) const noexcept {
  if (step.isKey()) return dictionary().find(step.key());
  return step.index() < array().size() ? &array()[step.index()] : nullptr;
}

const Value& Value::at(std::initializer_list<ValueStep> path) const noexcept {
  const Value* place = this;
  for (const ValueStep& step : path) {
    place = place->find(step);
    if (!place) return nullValue();
  }
  return *place;
}

/// The value that the step leads to, after making its container unshared. The value must exist.
Value& Value::own(const ValueStep& step) {
  if (!step.isKey()) return detail::makeUnique(large_.bits.array).values[step.index()];
  auto& block = detail::makeUnique(large_.bits.dictionary);
  return block.entries[block.position(step.key())].value;
}

bool Value::setAt(std::initializer_list<ValueStep> path, Value value) {
  // Follows the whole path first, so that nothing is copied if it leads nowhere.
  const Value* last = this;
  const ValueStep* missing = nullptr;
  for (const ValueStep& step : path) {
    const Value* const next = missing ? nullptr : last->find(step);
    const bool isAdded = !next && !missing && step.isKey() && last->isDictionary();
    if (!next && !isAdded) return false;
    if (isAdded) missing = &step;
    if (next) last = next;
  }
  Value* place = this;
  for (const ValueStep& step : path) {
    if (&step != missing) {
      place = &place->own(step);
    } else {
      detail::makeUnique(place->large_.bits.dictionary)
          .append(Dictionary::Key(step.key()), std::move(value));
      return true;
    }
  }
  *place = std::move(value);
  return true;
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
  return detail::makeUnique(block_).values;
}

std::size_t Array::size() const noexcept {
  return block_ ? block_->values.size() : 0;
}

const Value& Array::operator[](std::size_t index) const& noexcept {
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

void Array::set(std::size_t index, Value value) {
  if (index < size()) own()[index] = std::move(value);
}

void Array::reserve(std::size_t capacity) {
  own().reserve(capacity);
}

bool operator==(const Array& a, const Array& b) {
  return Comparison().areEqual(a, b);
}

// --- Dictionary ----------------------------------------------------------------------------------

Dictionary::Key::Key(std::string_view key)
    : block_(detail::makeWithCharacters<detail::KeyBlock>(key)) {
  block_->size = key.size();
}

Dictionary::Key::Key(const Key& other) noexcept : block_(other.block_) {
  detail::retain(block_);
}

Dictionary::Key::~Key() {
  detail::release(block_);
}

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
  return detail::makeUnique(block_);
}

std::size_t Dictionary::size() const noexcept {
  return block_ ? block_->entries.size() : 0;
}

const Value* Dictionary::find(std::string_view key) const noexcept {
  if (!block_) return nullptr;
  const std::size_t position = block_->position(key);
  return position < block_->entries.size() ? &block_->entries[position].value : nullptr;
}

const Value& Dictionary::operator[](std::string_view key) const& noexcept {
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
  detail::DictionaryBlock& block = own();
  const std::size_t position = block.position(key);
  if (position < block.entries.size()) {
    block.entries[position].value = std::move(value);
  } else {
    block.append(Key(key), std::move(value));
  }
}

void Dictionary::set(Key key, Value value) {
  detail::DictionaryBlock& block = own();
  const std::size_t position = block.position(key.view());
  if (position < block.entries.size()) {
    block.entries[position].value = std::move(value);
  } else {
    block.append(std::move(key), std::move(value));
  }
}

void Dictionary::reserve(std::size_t size) {
  own().entries.reserve(size);
}

void Dictionary::remove(std::string_view key) {
  if (contains(key)) own().remove(key);
}

bool operator==(const Dictionary& a, const Dictionary& b) {
  return Comparison().areEqual(a, b);
}

}  // namespace kiv
