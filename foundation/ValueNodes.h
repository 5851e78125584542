/// @file
/// The storage behind Value, Array and Dictionary: nodes and the arena of a
/// parsed reply. Private to the value model and the JSON reader.
///
/// A node lives either in an arena (a parsed reply: counted through the arena,
/// never freed on its own) or on the heap (counted by itself). A value stored
/// in an arena node holds a count only when it refers outside that arena;
/// references within one arena are not counted. An arena node that comes to
/// hold such a counted reference, or storage of its own on the heap, is put on
/// its arena's cleanup list, which the arena walks when it is freed.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string_view>
#include <vector>

#include "veltrane/foundation/Value.h"

namespace veltrane::detail {

struct Arena;
class PendingRead;

enum class NodeKind : uint8_t { String, Array, Dictionary };

struct Node {
    Arena* arena;                  ///< the reply it belongs to; nullptr on the heap
    std::atomic<uint32_t> refs;    ///< heap nodes only
    NodeKind kind;
    std::atomic<bool> listed;      ///< arena nodes: on the arena's cleanup list

    Node(Arena* a, NodeKind k) noexcept : arena(a), refs(1), kind(k), listed(false) {}
};

/// A string longer than a Value holds inline; its bytes follow the node, and
/// a value refers to them directly (the node lies just before).
struct StringNode : Node {
    uint32_t size;
    StringNode(Arena* a, uint32_t n) noexcept : Node(a, NodeKind::String), size(n) {}
    char* data() noexcept { return reinterpret_cast<char*>(this + 1); }
    const char* data() const noexcept { return reinterpret_cast<const char*>(this + 1); }
    std::string_view view() const noexcept { return {data(), size}; }
    static StringNode* of(const char* data) noexcept { return const_cast<StringNode*>(reinterpret_cast<const StringNode*>(data)) - 1; }
};

struct ArrayNode : Node {
    Value* items = nullptr;
    uint32_t size = 0;
    uint32_t capacity = 0;
    bool itemsOnHeap = false;
    explicit ArrayNode(Arena* a) noexcept : Node(a, NodeKind::Array) {}
};

/// Open addressing over key positions (position + 1; 0 is an empty slot).
struct Index {
    uint32_t mask;
    uint32_t* slots() noexcept { return reinterpret_cast<uint32_t*>(this + 1); }
    const uint32_t* slots() const noexcept { return reinterpret_cast<const uint32_t*>(this + 1); }
};

/// Keys and values in two arrays of the same length. A parsed dictionary
/// keeps both in its reply's arena, and rows of one shape (the same keys in
/// the same order) share one key array and its index: keys there are never
/// written. Before its keys change, a dictionary takes storage of its own on
/// the heap (ownStorage), keys, values and index alike.
struct DictNode : Node {
    Value* keys = nullptr;  ///< always strings
    Value* values = nullptr;
    const Index* index = nullptr;
    uint32_t size = 0;
    uint32_t capacity = 0;
    bool ownStorage = false;
    bool readOnly = false;
    explicit DictNode(Arena* a) noexcept : Node(a, NodeKind::Dictionary) {}
};

/// Dictionaries with more keys than this keep a hash index of them; smaller
/// ones are searched linearly (bench_json's DictionaryLookup measures the
/// crossing point).
inline constexpr uint32_t kIndexedAbove = 12;

/// The memory of one parsed reply: nodes, entries, elements, long strings and
/// indexes, bump-allocated from a few large blocks.
struct Arena {
    std::atomic<uint64_t> refs{1};
    std::mutex listMutex;
    std::vector<Node*> listed;  ///< nodes written after the parse
    struct Block {
        Block* next;
        size_t size;
    };
    Block* blocks = nullptr;
    char* cursor = nullptr;
    char* limit = nullptr;
    size_t nextBlock = 0;

    /// Reads put off until the reply's first write (see Deferred.h), and
    /// whether that write has come. Both guarded by pendingMutex.
    std::mutex pendingMutex;
    std::vector<PendingRead*> pending;
    std::atomic<bool> written{false};

    /// A new arena whose first block (in the same allocation) holds
    /// firstBlock bytes; further blocks hold a quarter of that, or what one
    /// allocation needs. Freed by the last release().
    static Arena* create(size_t firstBlock);
    void* allocate(size_t bytes) {
        bytes = (bytes + 7) & ~size_t{7};
        if (static_cast<size_t>(limit - cursor) < bytes) grow(bytes);
        void* at = cursor;
        cursor += bytes;
        return at;
    }
    void retain() noexcept {
        if (CountBatch& b = countBatch; b.arena == this && b.retains) {
            ++b.delta;
            return;
        }
        refs.fetch_add(1, std::memory_order_relaxed);
    }
    void release() noexcept {
        CountBatch& b = countBatch;
        if (b.arena != this && b.open) {
            b.arena = this;
            b.open = false;
        }
        if (b.arena == this) {
            --b.delta;
            return;
        }
        if (refs.fetch_sub(1, std::memory_order_acq_rel) == 1) destroy();
    }
    /// Applies counts gathered by a BatchedCounts scope.
    void apply(int64_t delta) noexcept;

    /// This thread's gathered counts (see BatchedCounts).
    static thread_local CountBatch countBatch;
    /// Puts node on the cleanup list, once.
    void list(Node* node) noexcept;
    /// Runs the reads still put off on this reply, then marks it written.
    /// Throws what a read throws; the write must then not happen.
    void firstWrite();
    /// Takes p off the pending list; under pendingMutex.
    void unlist(PendingRead* p) noexcept;

private:
    void grow(size_t bytes);
    void destroy() noexcept;
};

/// What the storage code needs of a Value's insides.
class Access {
public:
    /// The node a value refers to (long string, array or dictionary), or nullptr.
    static Node* node(const Value& v) noexcept { return v.node(); }
    /// Makes a value null without letting go of what it referred to.
    static void forget(Value& v) noexcept { v.setTag(Value::kNull); }
    static void makeNull(Value* at) noexcept { new (at) Value(); }
};

/// How many replies are alive now, in this process (for tests).
size_t liveArenas() noexcept;

/// Called before a container changes (its values or its storage): the first
/// change of a reply runs the reads put off on it.
inline void beforeWrite(Node* container) {
    if (Arena* a = container->arena; a && !a->written.load(std::memory_order_acquire)) a->firstWrite();
}

/// Counting on what a node belongs to.
inline void retainNode(Node* n) noexcept {
    if (n->arena) n->arena->retain();
    else n->refs.fetch_add(1, std::memory_order_relaxed);
}
void destroyHeapNode(Node* n) noexcept;
inline void releaseNode(Node* n) noexcept {
    if (n->arena) n->arena->release();
    else if (n->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) destroyHeapNode(n);
}

/// The 16 bytes an inline string of this text (at most 15 bytes) has:
/// zero-padded, with its length in the last byte. Loads overlap instead of
/// copying byte by byte.
struct KeyImage {
    uint64_t words[2];
};
inline KeyImage imageOf(std::string_view key) noexcept {
    const char* p = key.data();
    size_t n = key.size();
    uint64_t w0 = 0, w1 = 0;
    if (n >= 8) {
        uint64_t tail;
        std::memcpy(&w0, p, 8);
        std::memcpy(&tail, p + n - 8, 8);
        w1 = n == 8 ? 0 : tail >> (8 * (16 - n));
    } else if (n >= 4) {
        uint32_t head, tail;
        std::memcpy(&head, p, 4);
        std::memcpy(&tail, p + n - 4, 4);
        w0 = head | uint64_t{tail} << (8 * (n - 4));
    } else if (n > 0) {
        auto byte = [&](size_t i) { return uint64_t{static_cast<unsigned char>(p[i])} << (8 * i); };
        w0 = byte(0) | byte(n / 2) | byte(n - 1);
    }
    return {{w0, w1 | uint64_t{n} << 56}};
}
inline bool sameImage(const Value& key, const KeyImage& image) noexcept {
    uint64_t words[2];
    std::memcpy(words, &key, sizeof words);
    return words[0] == image.words[0] && words[1] == image.words[1];
}

/// Key hashing, the same for inline keys and long ones of the same text.
uint64_t hashKey(std::string_view key) noexcept;

/// The index of a dictionary's keys, in the reply's arena.
const Index* buildArenaIndex(Arena* arena, const Value* keys, uint32_t size);

/// Makes values inside an arena: bits placed straight into node storage, no
/// counting. Used by the JSON reader.
class Builder {
public:
    explicit Builder(Arena* arena) noexcept : arena_(arena) {}
    Arena* arena() const noexcept { return arena_; }

    static void null(Value* at) noexcept { at->setTag(Value::kNull); }
    static void boolean(Value* at, bool b) noexcept {
        at->payload_.b = b;
        at->setTag(Value::kBool);
    }
    static void integer(Value* at, int64_t v) noexcept {
        at->payload_.i = v;
        at->setTag(Value::kLong);
    }
    static void unsignedInteger(Value* at, uint64_t v) noexcept {
        at->payload_.u = v;
        at->setTag(Value::kUnsignedLong);
    }
    static void real(Value* at, double v) noexcept {
        at->payload_.d = v;
        at->setTag(Value::kDouble);
    }
    /// A string: inline when it fits, else a node in the arena.
    void string(Value* at, std::string_view s) {
        if (fitsInline(s.size())) {
            KeyImage image = imageOf(s);
            std::memcpy(static_cast<void*>(at), image.words, sizeof(Value));
        } else {
            stringNode(at, stringNode(s));
        }
    }
    /// A string that the caller has already placed in the arena.
    /// Every byte of the value is written: keys of one reply compare by their bits.
    static void stringNode(Value* at, StringNode* node) noexcept {
        std::memset(static_cast<void*>(at), 0, sizeof(Value));
        at->payload_.chars = node->data();
        std::memcpy(at->rest_, &node->size, sizeof node->size);
        at->setTag(Value::kLongString);
    }
    static bool fitsInline(size_t size) noexcept { return size <= 15; }
    ArrayNode* array(Value* at, uint32_t capacity);
    /// A dictionary with room for capacity values; its keys are the caller's
    /// to place (an array of its own, or one shared with a row of the same shape).
    DictNode* dictionary(Value* at, uint32_t capacity);
    StringNode* stringNode(std::string_view s);
    /// The root of a reply, counted: the arena's first count passes to it.
    static Value adoptRoot(Value* built) noexcept {
        Value root;
        std::memcpy(static_cast<void*>(&root), static_cast<const void*>(built), sizeof(Value));
        return root;
    }
    /// The raw 16 bytes of a value, for comparing keys built in one reply.
    static bool sameBits(const Value& a, const Value& b) noexcept { return std::memcmp(&a, &b, sizeof(Value)) == 0; }

private:
    Arena* arena_;
};

} // namespace veltrane::detail
