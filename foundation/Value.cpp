// Values, containers, their storage and counting, readings and equality.
#include "veltrane/foundation/Value.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <limits>
#include <new>

#include "veltrane/foundation/Deferred.h"
#include "veltrane/foundation/ValueNodes.h"

namespace veltrane {

ValueError ValueError::within(std::string_view segment) const {
    std::string path(segment);
    if (!path_.empty()) {
        if (path_.front() != '[') path += '.';
        path += path_;
    }
    return ValueError(std::move(path), reason_);
}

namespace detail {

namespace {

thread_local bool detaching = false;

// Within it, copies on this thread are ordinary (sharing) ones again.
struct SharingCopies {
    bool previous = detaching;
    SharingCopies() noexcept { detaching = false; }
    ~SharingCopies() { detaching = previous; }
    SharingCopies(const SharingCopies&) = delete;
    SharingCopies& operator=(const SharingCopies&) = delete;
};

// Deep copies reach at most this far, so that a container that holds itself
// is refused instead of overflowing the stack.
constexpr size_t kMaxCopyDepth = 1024;

template <class T>
T* allocateArray(size_t n) {
    return static_cast<T*>(::operator new(n * sizeof(T)));
}
void freeArray(void* p) noexcept { ::operator delete(p); }

} // namespace

// ---- Arena -----------------------------------------------------------------------

namespace {
std::atomic<size_t> arenasAlive{0};
}

size_t liveArenas() noexcept { return arenasAlive.load(); }

// The first block follows the arena in the same allocation.
Arena* Arena::create(size_t firstBlock) {
    size_t head = (sizeof(Arena) + 7) & ~size_t{7};
    firstBlock = (std::max<size_t>(firstBlock, 1024) + 7) & ~size_t{7};
    auto* arena = new (::operator new(head + firstBlock)) Arena();
    arenasAlive.fetch_add(1, std::memory_order_relaxed);
    arena->cursor = reinterpret_cast<char*>(arena) + head;
    arena->limit = arena->cursor + firstBlock;
    arena->nextBlock = std::max<size_t>(firstBlock / 4, 1024);
    return arena;
}

void Arena::grow(size_t bytes) {
    size_t size = std::max(nextBlock, bytes + sizeof(Block) + 8);
    auto* block = static_cast<Block*>(::operator new(size));
    block->next = blocks;
    block->size = size;
    blocks = block;
    cursor = reinterpret_cast<char*>(block) + ((sizeof(Block) + 7) & ~size_t{7});
    limit = reinterpret_cast<char*>(block) + size;
}

void Arena::list(Node* node) noexcept {
    if (node->listed.exchange(true, std::memory_order_acq_rel)) return;
    std::lock_guard lock(listMutex);
    listed.push_back(node);
}

thread_local CountBatch Arena::countBatch;

void Arena::apply(int64_t delta) noexcept {
    if (delta > 0) refs.fetch_add(static_cast<uint64_t>(delta), std::memory_order_relaxed);
    else if (delta < 0 && refs.fetch_sub(static_cast<uint64_t>(-delta), std::memory_order_acq_rel) == static_cast<uint64_t>(-delta)) destroy();
}

BatchedCounts::BatchedCounts(const Dictionary* anchor) noexcept : outer_(Arena::countBatch) {
    CountBatch& b = Arena::countBatch;
    b = CountBatch{};
    if (anchor) {
        b.arena = anchor->node_->arena;
        b.retains = b.arena != nullptr;
    } else {
        b.open = true;
    }
}

BatchedCounts::~BatchedCounts() {
    CountBatch gathered = Arena::countBatch;
    Arena::countBatch = outer_;
    if (gathered.arena) static_cast<Arena*>(gathered.arena)->apply(gathered.delta);
}

void Arena::firstWrite() {
    std::lock_guard lock(pendingMutex);
    if (written.load(std::memory_order_relaxed)) return;
    SharingCopies sharing;
    while (!pending.empty()) {
        PendingRead* p = pending.back();
        p->readNow();
        unlist(p);
    }
    written.store(true, std::memory_order_release);
}

void Arena::unlist(PendingRead* p) noexcept {
    PendingRead* last = pending.back();
    pending[p->place_] = last;
    last->place_ = p->place_;
    pending.pop_back();
    p->pending_ = false;
}

bool PendingRead::defer(const Dictionary& source) {
    Arena* arena = source.node_->arena;
    if (!arena) return false;
    std::lock_guard lock(arena->pendingMutex);
    if (arena->written.load(std::memory_order_relaxed)) return false;
    if (arena->pending.empty()) arena->pending.reserve(16);  // a short page at once
    arena->pending.push_back(this);
    place_ = arena->pending.size() - 1;
    pending_ = true;
    arena_ = arena;
    return true;
}

void PendingRead::resolve() {
    if (!arena_) return;
    std::lock_guard lock(arena_->pendingMutex);
    if (!pending_) return;
    SharingCopies sharing;
    readNow();
    arena_->unlist(this);
}

void PendingRead::withdraw() noexcept {
    if (!arena_) return;
    std::lock_guard lock(arena_->pendingMutex);
    if (pending_) arena_->unlist(this);
}

void Arena::destroy() noexcept {
    // Counted references held by written nodes, and storage they moved out.
    auto releaseForeign = [this](const Value& v) {
        if (Node* n = Access::node(v); n && n->arena != this) releaseNode(n);
    };
    for (Node* n : listed) {
        if (n->kind == NodeKind::Array) {
            auto* a = static_cast<ArrayNode*>(n);
            for (uint32_t i = 0; i < a->size; ++i) releaseForeign(a->items[i]);
            if (a->itemsOnHeap) freeArray(a->items);
        } else if (n->kind == NodeKind::Dictionary) {
            auto* d = static_cast<DictNode*>(n);
            for (uint32_t i = 0; i < d->size; ++i) {
                if (d->ownStorage) releaseForeign(d->keys[i]);
                releaseForeign(d->values[i]);
            }
            if (d->ownStorage) {
                freeArray(d->keys);
                freeArray(d->values);
                freeArray(const_cast<Index*>(d->index));
            }
        }
    }
    for (Block* b = blocks; b;) {
        Block* next = b->next;
        ::operator delete(b);
        b = next;
    }
    arenasAlive.fetch_sub(1, std::memory_order_relaxed);
    this->~Arena();
    ::operator delete(this);
}

void destroyHeapNode(Node* n) noexcept {
    switch (n->kind) {
    case NodeKind::String: {
        auto* s = static_cast<StringNode*>(n);
        s->~StringNode();
        ::operator delete(s);
        return;
    }
    case NodeKind::Array: {
        auto* a = static_cast<ArrayNode*>(n);
        for (uint32_t i = 0; i < a->size; ++i) a->items[i].~Value();
        freeArray(a->items);
        delete a;
        return;
    }
    case NodeKind::Dictionary: {
        auto* d = static_cast<DictNode*>(n);
        for (uint32_t i = 0; i < d->size; ++i) {
            d->keys[i].~Value();
            d->values[i].~Value();
        }
        freeArray(d->keys);
        freeArray(d->values);
        freeArray(const_cast<Index*>(d->index));
        delete d;
        return;
    }
    }
}

// ---- Keys and the index -----------------------------------------------------------

namespace {
// The finaliser of MurmurHash3: every input bit reaches every output bit.
inline uint64_t mix(uint64_t h) noexcept {
    h ^= h >> 33;
    h *= 0xFF51AFD7ED558CCDull;
    h ^= h >> 33;
    h *= 0xC4CEB9FE1A85EC53ull;
    return h ^ (h >> 33);
}
} // namespace

uint64_t hashKey(std::string_view key) noexcept {
    if (key.size() <= 15) {
        KeyImage image = imageOf(key);
        return mix(image.words[0] ^ mix(image.words[1]));
    }
    return mix(std::hash<std::string_view>()(key));
}

template <class Allocate>
Index* buildIndex(const Value* keys, uint32_t size, Allocate allocate) {
    uint32_t capacity = 16;
    while (capacity < size * 2) capacity *= 2;
    auto* index = static_cast<Index*>(allocate(sizeof(Index) + capacity * sizeof(uint32_t)));
    index->mask = capacity - 1;
    std::memset(index->slots(), 0, capacity * sizeof(uint32_t));
    for (uint32_t i = 0; i < size; ++i) {
        uint32_t slot = static_cast<uint32_t>(hashKey(keys[i].asString())) & index->mask;
        while (index->slots()[slot]) slot = (slot + 1) & index->mask;
        index->slots()[slot] = i + 1;
    }
    return index;
}

// For the reader: an index in the reply's arena.
const Index* buildArenaIndex(Arena* arena, const Value* keys, uint32_t size) {
    return buildIndex(keys, size, [arena](size_t bytes) { return arena->allocate(bytes); });
}

namespace {

// The position of a short key's image in a dictionary without an index, or -1.
inline int64_t scan(const DictNode* d, const KeyImage& image) noexcept {
    for (uint32_t i = 0; i < d->size; ++i)
        if (sameImage(d->keys[i], image)) return i;
    return -1;
}

// The position of key among the keys, or -1.
int64_t position(const DictNode* d, std::string_view key) noexcept {
    const Value* keys = d->keys;
    if (key.size() <= 15) {
        KeyImage image = imageOf(key);
        if (!d->index) return scan(d, image);
        const uint32_t* slots = d->index->slots();
        for (uint32_t slot = static_cast<uint32_t>(hashKey(key)) & d->index->mask; slots[slot]; slot = (slot + 1) & d->index->mask)
            if (sameImage(keys[slots[slot] - 1], image)) return slots[slot] - 1;
        return -1;
    }
    auto matches = [&](const Value& k) { return k.isString() && k.asString() == key; };
    if (d->index) {
        const uint32_t* slots = d->index->slots();
        for (uint32_t slot = static_cast<uint32_t>(hashKey(key)) & d->index->mask; slots[slot]; slot = (slot + 1) & d->index->mask)
            if (matches(keys[slots[slot] - 1])) return slots[slot] - 1;
        return -1;
    }
    for (uint32_t i = 0; i < d->size; ++i)
        if (matches(keys[i])) return i;
    return -1;
}

// An index of its own, on the heap (or none when the dictionary is small).
// Only for a dictionary with storage of its own.
void rebuildHeapIndex(DictNode* d) {
    freeArray(const_cast<Index*>(d->index));
    d->index = nullptr;
    if (d->size <= kIndexedAbove) return;
    d->index = buildIndex(d->keys, d->size, [](size_t bytes) { return ::operator new(bytes); });
}

// Stores v in slot of container, by the counting rule of the container's
// arena (see ValueNodes.h); the old value is let go. v is left null.
void assign(Node* container, Value& slot, Value&& v) noexcept;

} // namespace
} // namespace detail

// ---- Value -----------------------------------------------------------------------

using detail::Node;

detail::DetachingCopies::DetachingCopies() noexcept : previous_(detaching) { detaching = true; }
detail::DetachingCopies::~DetachingCopies() { detaching = previous_; }

Value::Value(bool b) noexcept {
    payload_.b = b;
    setTag(kBool);
}

Value::Value(Number n) noexcept {
    switch (n.kind()) {
    case Number::Kind::Int32: payload_.i = n.intValue(); setTag(kInt32); break;
    case Number::Kind::Long: payload_.i = n.longValue(); setTag(kLong); break;
    case Number::Kind::UnsignedLong: payload_.u = n.unsignedLongValue(); setTag(kUnsignedLong); break;
    case Number::Kind::Float: payload_.f = n.floatValue(); setTag(kFloat); break;
    case Number::Kind::Double: payload_.d = n.doubleValue(); setTag(kDouble); break;
    }
}

Value::Value(std::string_view s) {
    if (s.size() <= 15) {
        detail::KeyImage image = detail::imageOf(s);
        std::memcpy(static_cast<void*>(this), image.words, sizeof(Value));
        return;
    }
    if (s.size() > std::numeric_limits<uint32_t>::max()) throw std::length_error("string too long for a value");
    void* memory = ::operator new(sizeof(detail::StringNode) + s.size());
    auto* node = new (memory) detail::StringNode(nullptr, static_cast<uint32_t>(s.size()));
    std::memcpy(node->data(), s.data(), s.size());
    detail::Builder::stringNode(this, node);
}

Value::Value(veltrane::Array a) noexcept {
    new (&payload_.array) veltrane::Array(std::move(a));
    setTag(kArray);
}

Value::Value(veltrane::Dictionary d) noexcept {
    new (&payload_.dictionary) veltrane::Dictionary(std::move(d));
    setTag(kDictionary);
}

void Value::copyNode(const Value& other) {
    if (detail::detaching) {
        Value copy = other.detached();
        std::memcpy(static_cast<void*>(this), static_cast<const void*>(&copy), sizeof(Value));
        copy.setTag(kNull);
        return;
    }
    std::memcpy(static_cast<void*>(this), static_cast<const void*>(&other), sizeof(Value));
    retain();
}

Value::Value(Value&& other) noexcept {
    std::memcpy(static_cast<void*>(this), static_cast<const void*>(&other), sizeof(Value));
    other.setTag(kNull);
}

Value& Value::operator=(const Value& other) {
    if (this != &other) {
        Value copy(other);
        release();
        steal(copy);
    }
    return *this;
}

Value& Value::operator=(Value&& other) noexcept {
    if (this != &other) {
        release();
        steal(other);
    }
    return *this;
}

void Value::steal(Value& other) noexcept {
    std::memcpy(static_cast<void*>(this), static_cast<const void*>(&other), sizeof(Value));
    other.setTag(kNull);
}

detail::Node* Value::node() const noexcept {
    switch (tag()) {
    case kLongString: return detail::StringNode::of(payload_.chars);
    case kArray: return payload_.array.node_;
    case kDictionary: return payload_.dictionary.node_;
    default: return nullptr;
    }
}

void Value::retain() const noexcept {
    if (Node* n = node()) detail::retainNode(n);
}

void Value::release() noexcept {
    if (Node* n = node()) {
        setTag(kNull);
        detail::releaseNode(n);
    }
}

Value::Type Value::type() const noexcept {
    switch (tag()) {
    case kNull: return Type::Null;
    case kBool: return Type::Boolean;
    case kArray: return Type::Array;
    case kDictionary: return Type::Dictionary;
    default: return tag() <= kLongString ? Type::String : Type::Number;
    }
}

const char* Value::kindName() const noexcept {
    switch (type()) {
    case Type::Null: return "null";
    case Type::Boolean: return "a boolean";
    case Type::Number: return "a number";
    case Type::String: return "a string";
    case Type::Array: return "an array";
    case Type::Dictionary: return "a dictionary";
    }
    return "a value";
}

namespace {
[[noreturn]] void wrongKind(const Value& v, const char* wanted) { throw ValueError(std::string(v.kindName()) + " is not " + wanted); }
[[noreturn]] void noReading(const Value& v, const char* reading) { throw ValueError(std::string(v.kindName()) + " has no " + reading); }

bool textIsTrue(std::string_view t) {
    std::string_view rest = t.substr(std::min(t.find_first_not_of(" \t\r\n"), t.size()));
    auto startsWith = [&](std::string_view word) {
        if (rest.size() < word.size()) return false;
        for (size_t i = 0; i < word.size(); ++i)
            if (std::tolower(static_cast<unsigned char>(rest[i])) != word[i]) return false;
        return true;
    };
    return startsWith("true") || startsWith("yes") || leadingInteger(t) != 0;
}
} // namespace

bool Value::asBool() const {
    if (isBool()) return payload_.b;
    wrongKind(*this, "a boolean");
}
Number Value::asNumber() const {
    if (std::optional<Number> n = numberIf()) return *n;
    wrongKind(*this, "a number");
}
std::string_view Value::asString() const {
    if (std::optional<std::string_view> s = stringIf()) return *s;
    wrongKind(*this, "a string");
}
const Array& Value::asArray() const {
    if (isArray()) return payload_.array;
    wrongKind(*this, "an array");
}
const Dictionary& Value::asDictionary() const {
    if (isDictionary()) return payload_.dictionary;
    wrongKind(*this, "a dictionary");
}

long Value::longValue() const {
    if (std::optional<Number> n = numberIf()) return n->longValue();
    if (std::optional<std::string_view> s = stringIf()) return static_cast<long>(leadingInteger(*s));
    if (isBool()) return payload_.b ? 1 : 0;
    noReading(*this, "integer value");
}
int32_t Value::intValue() const { return static_cast<int32_t>(longValue()); }
unsigned long Value::unsignedLongValue() const {
    if (std::optional<Number> n = numberIf()) return n->unsignedLongValue();
    return static_cast<unsigned long>(longValue());
}
double Value::doubleValue() const {
    if (std::optional<Number> n = numberIf()) return n->doubleValue();
    if (std::optional<std::string_view> s = stringIf()) return leadingDouble(*s);
    if (isBool()) return payload_.b ? 1 : 0;
    noReading(*this, "double value");
}
float Value::floatValue() const {
    if (std::optional<Number> n = numberIf()) return n->floatValue();
    if (isNull() || isArray() || isDictionary()) noReading(*this, "float value");
    return Number(doubleValue()).floatValue();
}
bool Value::boolValue() const {
    if (isBool()) return payload_.b;
    if (std::optional<Number> n = numberIf()) return n->boolValue();
    if (std::optional<std::string_view> s = stringIf()) return textIsTrue(*s);
    noReading(*this, "boolean value");
}

// ---- Deep copies -------------------------------------------------------------------

namespace detail {

class Copier {
public:
    static Value value(const Value& v, size_t depth) {
        if (depth > kMaxCopyDepth) throw ValueError("value nested deeper than " + std::to_string(kMaxCopyDepth) + " levels, or holding itself");
        switch (v.tag()) {
        case Value::kLongString: return Value(v.asString());
        case Value::kArray: return Value(array(v.payload_.array, depth));
        case Value::kDictionary: return Value(dictionary(v.payload_.dictionary, depth));
        default: {
            Value copy;
            std::memcpy(static_cast<void*>(&copy), static_cast<const void*>(&v), sizeof(Value));
            return copy;
        }
        }
    }
    static Array array(const Array& a, size_t depth) {
        SharingCopies off;
        Array out;
        out.reserve(a.size());
        for (const Value& item : a) out.push_back(value(item, depth + 1));
        return out;
    }
    static Dictionary dictionary(const Dictionary& d, size_t depth) {
        SharingCopies off;
        Dictionary out;
        out.reserve(d.size());
        for (auto [key, item] : d) out.set(key, value(item, depth + 1));
        return out;
    }

};

} // namespace detail

Value Value::detached() const { return detail::Copier::value(*this, 0); }
Array Array::detached() const { return detail::Copier::array(*this, 0); }
Dictionary Dictionary::detached() const { return detail::Copier::dictionary(*this, 0); }

// ---- Writing into containers --------------------------------------------------------

namespace detail {
namespace {

void assign(Node* container, Value& slot, Value&& v) noexcept {
    Arena* arena = container->arena;
    if (Node* old = Access::node(slot); old && (!arena || old->arena != arena)) releaseNode(old);
    std::memcpy(static_cast<void*>(&slot), static_cast<const void*>(&v), sizeof(Value));
    Access::forget(v);
    if (!arena) return;
    // A reference into the same reply is not counted.
    if (Node* n = Access::node(slot); n && n->arena == arena) arena->release();
    arena->list(container);
}

// Room for at least n items, moving the storage to the heap when it must grow.
template <class T>
void reserveStorage(Node* container, T*& storage, uint32_t size, uint32_t& capacity, bool& onHeap, size_t n) {
    if (n <= capacity) return;
    if (n > std::numeric_limits<uint32_t>::max()) throw std::length_error("container too large");
    size_t grown = std::max<size_t>({n, size_t{capacity} * 2, 4});
    grown = std::min<size_t>(grown, std::numeric_limits<uint32_t>::max());
    T* moved = allocateArray<T>(grown);
    if (size) std::memcpy(static_cast<void*>(moved), static_cast<const void*>(storage), size * sizeof(T));
    if (onHeap) freeArray(storage);
    storage = moved;
    capacity = static_cast<uint32_t>(grown);
    onHeap = true;
    if (container->arena) container->arena->list(container);
}

} // namespace
} // namespace detail

// ---- Array -------------------------------------------------------------------------

Array::Array() : node_(new detail::ArrayNode(nullptr)) { node_->itemsOnHeap = true; }

Array::Array(std::initializer_list<Value> values) : Array() {
    reserve(values.size());
    for (const Value& v : values) push_back(v);
}

Array::Array(std::vector<Value> values) : Array() {
    reserve(values.size());
    for (Value& v : values) push_back(std::move(v));
}

Array::Array(const Array& other) : node_(other.node_) {
    if (detail::detaching) {
        Array copy = other.detached();
        node_ = std::exchange(copy.node_, nullptr);
        return;
    }
    detail::retainNode(node_);
}
Array::Array(Array&& other) noexcept : node_(std::exchange(other.node_, nullptr)) {}
Array& Array::operator=(const Array& other) {
    Array copy(other);
    std::swap(node_, copy.node_);
    return *this;
}
Array& Array::operator=(Array&& other) noexcept {
    std::swap(node_, other.node_);
    return *this;
}
Array::~Array() {
    if (node_) detail::releaseNode(node_);
}

size_t Array::size() const noexcept { return node_->size; }
const Value& Array::operator[](size_t i) const {
    if (i >= node_->size) throw std::out_of_range("array index " + std::to_string(i) + " past the end");
    return node_->items[i];
}
void Array::set(size_t i, Value v) {
    if (i >= node_->size) throw std::out_of_range("array index " + std::to_string(i) + " past the end");
    detail::beforeWrite(node_);
    detail::assign(node_, node_->items[i], std::move(v));
}
void Array::push_back(Value v) {
    detail::beforeWrite(node_);
    reserve(size_t{node_->size} + 1);
    Value* slot = node_->items + node_->size;
    detail::Access::makeNull(slot);
    detail::assign(node_, *slot, std::move(v));
    ++node_->size;
}
void Array::reserve(size_t n) {
    if (n <= node_->capacity) return;
    detail::beforeWrite(node_);
    detail::reserveStorage(node_, node_->items, node_->size, node_->capacity, node_->itemsOnHeap, n);
}
const Value* Array::begin() const noexcept { return node_->items; }
const Value* Array::end() const noexcept { return node_->items + node_->size; }

Array Array::copy() const {
    Array out;
    out.reserve(size());
    for (const Value& v : *this) out.push_back(v);
    return out;
}

// ---- Dictionary ----------------------------------------------------------------------

Dictionary::Entry Dictionary::const_iterator::operator*() const noexcept { return {key_->asString(), *value_}; }
Dictionary::const_iterator& Dictionary::const_iterator::operator++() noexcept {
    ++key_;
    ++value_;
    return *this;
}

Dictionary::Dictionary() : node_(new detail::DictNode(nullptr)) { node_->ownStorage = true; }

Dictionary::Dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries) : Dictionary() {
    reserve(entries.size());
    for (const auto& [key, value] : entries) set(key, value);
}

Dictionary::Dictionary(const Dictionary& other) : node_(other.node_) {
    if (detail::detaching) {
        Dictionary copy = other.detached();
        node_ = std::exchange(copy.node_, nullptr);
        return;
    }
    detail::retainNode(node_);
}
Dictionary::Dictionary(Dictionary&& other) noexcept : node_(std::exchange(other.node_, nullptr)) {}
Dictionary& Dictionary::operator=(const Dictionary& other) {
    Dictionary copy(other);
    std::swap(node_, copy.node_);
    return *this;
}
Dictionary& Dictionary::operator=(Dictionary&& other) noexcept {
    std::swap(node_, other.node_);
    return *this;
}
Dictionary::~Dictionary() {
    if (node_) detail::releaseNode(node_);
}

size_t Dictionary::size() const noexcept { return node_->size; }
Dictionary::const_iterator Dictionary::begin() const noexcept { return {node_->keys, node_->values}; }
Dictionary::const_iterator Dictionary::end() const noexcept { return {node_->keys + node_->size, node_->values + node_->size}; }

const Value* Dictionary::find(std::string_view key) const noexcept {
    // Records look up short keys in small dictionaries: that scan first,
    // without the general search's call.
    const detail::DictNode* d = node_;
    int64_t at = key.size() <= 15 && !d->index ? detail::scan(d, detail::imageOf(key)) : detail::position(d, key);
    return at < 0 ? nullptr : &d->values[at];
}

Value Dictionary::valueOrNull(std::string_view key) const {
    const Value* v = find(key);
    return v ? *v : Value();
}

namespace detail {
namespace {

// Gives d keys, values and index of its own on the heap, with room for n
// entries, before its keys change: a parsed dictionary's keys may be shared
// with its siblings and are never written where they are.
void ownStorage(DictNode* d, size_t n) {
    if (d->ownStorage && n <= d->capacity) return;
    if (n > std::numeric_limits<uint32_t>::max()) throw std::length_error("dictionary too large");
    size_t grown = std::min<size_t>(std::max<size_t>({n, size_t{d->capacity} * 2, 4}), std::numeric_limits<uint32_t>::max());
    Value* keys = allocateArray<Value>(grown);
    Value* values = allocateArray<Value>(grown);
    if (d->size) {
        std::memcpy(static_cast<void*>(keys), static_cast<const void*>(d->keys), d->size * sizeof(Value));
        std::memcpy(static_cast<void*>(values), static_cast<const void*>(d->values), d->size * sizeof(Value));
    }
    bool hadOwn = d->ownStorage;
    if (hadOwn) {
        freeArray(d->keys);
        freeArray(d->values);
    }
    d->keys = keys;
    d->values = values;
    d->capacity = static_cast<uint32_t>(grown);
    d->ownStorage = true;
    if (!hadOwn) {
        d->index = nullptr;  // the arena's, perhaps shared
        rebuildHeapIndex(d);
    }
    if (d->arena) d->arena->list(d);
}

} // namespace
} // namespace detail

void Dictionary::set(std::string_view key, Value v) {
    detail::DictNode* d = node_;
    if (d->readOnly) throw ValueError("attempt to change a read-only dictionary");
    detail::beforeWrite(d);
    if (int64_t at = detail::position(d, key); at >= 0) {
        detail::assign(d, d->values[at], std::move(v));
        return;
    }
    detail::ownStorage(d, size_t{d->size} + 1);
    detail::Access::makeNull(&d->keys[d->size]);
    detail::Access::makeNull(&d->values[d->size]);
    detail::assign(d, d->keys[d->size], Value(key));
    detail::assign(d, d->values[d->size], std::move(v));
    ++d->size;
    if (d->size <= detail::kIndexedAbove) return;
    if (!d->index || d->index->mask + 1 < d->size * 2) return detail::rebuildHeapIndex(d);
    auto* index = const_cast<detail::Index*>(d->index);
    uint32_t slot = static_cast<uint32_t>(detail::hashKey(key)) & index->mask;
    while (index->slots()[slot]) slot = (slot + 1) & index->mask;
    index->slots()[slot] = d->size;
}

void Dictionary::setValue(std::string_view key, std::optional<Value> v) {
    if (v) set(key, std::move(*v));
    else remove(key);
}

void Dictionary::remove(std::string_view key) {
    detail::DictNode* d = node_;
    if (d->readOnly) throw ValueError("attempt to change a read-only dictionary");
    int64_t at = detail::position(d, key);
    if (at < 0) return;
    detail::beforeWrite(d);
    detail::ownStorage(d, d->size);
    detail::assign(d, d->keys[at], Value());
    detail::assign(d, d->values[at], Value());
    size_t after = d->size - at - 1;
    std::memmove(static_cast<void*>(d->keys + at), static_cast<const void*>(d->keys + at + 1), after * sizeof(Value));
    std::memmove(static_cast<void*>(d->values + at), static_cast<const void*>(d->values + at + 1), after * sizeof(Value));
    --d->size;
    if (d->index) detail::rebuildHeapIndex(d);
}

void Dictionary::reserve(size_t n) {
    if (n <= node_->capacity && node_->ownStorage) return;
    detail::beforeWrite(node_);
    detail::ownStorage(node_, n);
}

Dictionary Dictionary::mutableCopy() const {
    Dictionary out;
    out.reserve(size());
    detail::DictNode* d = out.node_;
    for (uint32_t i = 0; i < node_->size; ++i) {
        new (&d->keys[i]) Value(node_->keys[i]);
        new (&d->values[i]) Value(node_->values[i]);
    }
    d->size = node_->size;
    detail::rebuildHeapIndex(d);
    return out;
}

Dictionary Dictionary::immutableCopy() const {
    Dictionary copy = mutableCopy();
    copy.node_->readOnly = true;
    return copy;
}

bool Dictionary::isReadOnly() const noexcept { return node_->readOnly; }

// ---- Readings -------------------------------------------------------------------------

namespace {

// Numeric reading shared by the opt accessors: numbers, numeric text and
// booleans have one; everything else has none.
template <class T, class FromNumber, class FromText>
T numericReading(const Value* v, FromNumber fromNumber, FromText fromText) noexcept {
    if (!v) return T{};
    if (std::optional<Number> n = v->numberIf()) return fromNumber(*n);
    if (std::optional<std::string_view> s = v->stringIf()) return fromText(*s);
    if (v->isBool()) return static_cast<T>(v->asBool() ? 1 : 0);
    return T{};
}

} // namespace

std::optional<std::string> Dictionary::optString(std::string_view key) const {
    const Value* v = find(key);
    if (!v) return std::nullopt;
    if (std::optional<std::string_view> s = v->stringIf()) return std::string(*s);
    if (std::optional<Number> n = v->numberIf()) return n->text();
    if (v->isBool()) return std::string(v->asBool() ? "true" : "false");
    return std::nullopt;
}

int32_t Dictionary::optInt(std::string_view key) const { return static_cast<int32_t>(optLong(key)); }

long Dictionary::optLong(std::string_view key) const {
    return numericReading<long>(
        find(key), [](const Number& n) { return n.longValue(); }, [](std::string_view s) { return static_cast<long>(leadingInteger(s)); });
}

double Dictionary::optDouble(std::string_view key) const {
    return numericReading<double>(find(key), [](const Number& n) { return n.doubleValue(); }, [](std::string_view s) { return leadingDouble(s); });
}

float Dictionary::optFloat(std::string_view key) const {
    return numericReading<float>(
        find(key), [](const Number& n) { return n.floatValue(); }, [](std::string_view s) { return Number(leadingDouble(s)).floatValue(); });
}

bool Dictionary::optBool(std::string_view key) const {
    const Value* v = find(key);
    if (!v) return false;
    if (v->isBool()) return v->asBool();
    if (std::optional<Number> n = v->numberIf()) return n->boolValue();
    if (std::optional<std::string_view> s = v->stringIf()) return textIsTrue(*s);
    return false;
}

std::optional<Array> Dictionary::optArray(std::string_view key) const {
    const Value* v = find(key);
    if (v && v->isArray()) return v->asArray();
    return std::nullopt;
}

Dictionary Dictionary::optDictionary(std::string_view key) const {
    const Value* v = find(key);
    if (v && v->isDictionary()) return v->asDictionary();
    return Dictionary();
}

int32_t Dictionary::intAt(std::string_view key, const Value& v) { return locatedAt(key, [&] { return v.intValue(); }); }
long Dictionary::longAt(std::string_view key, const Value& v) { return locatedAt(key, [&] { return v.longValue(); }); }
float Dictionary::floatAt(std::string_view key, const Value& v) { return locatedAt(key, [&] { return v.floatValue(); }); }
double Dictionary::doubleAt(std::string_view key, const Value& v) { return locatedAt(key, [&] { return v.doubleValue(); }); }

// ---- Equality ----------------------------------------------------------------------------

bool operator==(const Array& a, const Array& b) {
    if (a.isSame(b)) return true;
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin());
}

bool operator==(const Dictionary& a, const Dictionary& b) {
    if (a.isSame(b)) return true;
    if (a.size() != b.size()) return false;
    for (auto [key, value] : a) {
        const Value* other = b.find(key);
        if (!other || !(*other == value)) return false;
    }
    return true;
}

bool operator==(const Value& a, const Value& b) {
    Value::Type type = a.type();
    if (type != b.type()) return false;
    switch (type) {
    case Value::Type::Null: return true;
    case Value::Type::Boolean: return a.asBool() == b.asBool();
    case Value::Type::Number: return a.asNumber() == b.asNumber();
    case Value::Type::String: return a.asString() == b.asString();
    case Value::Type::Array: return a.asArray() == b.asArray();
    case Value::Type::Dictionary: return a.asDictionary() == b.asDictionary();
    }
    return false;
}

// ---- Building inside an arena ---------------------------------------------------------------

namespace detail {

StringNode* Builder::stringNode(std::string_view s) {
    void* memory = arena_->allocate(sizeof(StringNode) + s.size());
    auto* node = new (memory) StringNode(arena_, static_cast<uint32_t>(s.size()));
    std::memcpy(node->data(), s.data(), s.size());
    return node;
}

ArrayNode* Builder::array(Value* at, uint32_t capacity) {
    auto* node = new (arena_->allocate(sizeof(ArrayNode))) ArrayNode(arena_);
    node->items = static_cast<Value*>(arena_->allocate(size_t{capacity} * sizeof(Value)));
    node->capacity = capacity;
    new (&at->payload_.array) Array(node, Array::Adopt{});
    at->setTag(Value::kArray);
    return node;
}

DictNode* Builder::dictionary(Value* at, uint32_t capacity) {
    auto* node = new (arena_->allocate(sizeof(DictNode))) DictNode(arena_);
    node->values = static_cast<Value*>(arena_->allocate(size_t{capacity} * sizeof(Value)));
    node->capacity = capacity;
    new (&at->payload_.dictionary) Dictionary(node, Dictionary::Adopt{});
    at->setTag(Value::kDictionary);
    return node;
}

} // namespace detail

} // namespace veltrane
