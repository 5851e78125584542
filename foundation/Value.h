/// @file
/// The JSON value model: null, boolean, number, string, array and dictionary.
///
/// A Value is 16 bytes: strings of up to 15 bytes are held inline, numbers keep
/// their kind (32-bit, word-sized, unsigned word-sized, float, double), and
/// arrays, dictionaries and longer strings are handles to nodes.
///
/// Arrays and dictionaries are shared handles: copying a Value, an Array or a
/// Dictionary copies the handle, so every holder sees the same container and
/// its later changes. copy()/mutableCopy() make a new one-level copy (the
/// elements themselves are shared). A dictionary keeps its keys in insertion
/// order; setting an existing key replaces the value in place.
///
/// A parsed reply lives in one arena (a few large blocks) that is counted as a
/// whole: every handle into it from outside keeps all of it alive, references
/// between its own values are not counted (so a reply can refer to itself
/// without leaking), and it is freed with the last handle. Containers of a
/// reply can be written like any other; one that grows past its parsed size
/// moves its storage out of the arena. A record kept long after its reply
/// should be detach()ed, so that it holds its own values and not the whole
/// reply.
///
/// JSON null and an absent key are different things everywhere: find() returns
/// nullptr for an absent key and a pointer to a null Value for a stored null.
///
/// Thread rules: counts are atomic, so handles may be copied and dropped on any
/// thread. A container may be read from several threads at once, but must not
/// be changed while another thread uses it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "veltrane/foundation/Number.h"

namespace veltrane {

/// A value lacks the reading asked of it (the integer value of null, the keys of
/// a string...), or a read-only dictionary was written to. The error says where
/// when it is known: its description is "<path>: <reason>", the path naming the
/// key and elements that led to the value ("data[3].Rank"), or the reason alone.
class ValueError : public std::runtime_error {
public:
    /// An error whose place is not known yet (within() adds it).
    explicit ValueError(std::string reason) : ValueError(std::string(), std::move(reason)) {}

    /// The same error one level further out: segment is a key ("Rank") or an
    /// element ("[3]") under which the failing value was found.
    ValueError within(std::string_view segment) const;

    /// Where: "data[3].Rank", or "" when not known.
    const std::string& path() const noexcept { return path_; }
    /// What: "null has no integer value".
    const std::string& reason() const noexcept { return reason_; }

private:
    ValueError(std::string path, std::string reason)
        : std::runtime_error(path.empty() ? reason : path + ": " + reason), path_(std::move(path)), reason_(std::move(reason)) {}
    std::string path_;
    std::string reason_;
};

/// Runs read() and locates a ValueError it throws under segment.
template <class Read>
auto locatedAt(std::string_view segment, Read&& read) -> decltype(read()) {
    try {
        return read();
    } catch (const ValueError& e) {
        throw e.within(segment);
    }
}

/// The same for element index of the container under name (name may be empty):
/// "data[3]". The segment is made only when something is thrown.
template <class Read>
auto locatedAtElement(std::string_view name, size_t index, Read&& read) -> decltype(read()) {
    try {
        return read();
    } catch (const ValueError& e) {
        throw e.within(std::string(name) + "[" + std::to_string(index) + "]");
    }
}

class Value;
class Array;
class Dictionary;

namespace detail {
struct Node;
struct ArrayNode;
struct DictNode;
class Builder;
class Copier;
class Access;
class PendingRead;
class BatchedCounts;
} // namespace detail

/// A JSON array: a shared handle to its elements (copies of the handle see
/// one another's changes; copy() makes a new array).
class Array {
public:
    /// A new, empty array of its own.
    Array();
    /// A new array of its own holding values.
    ///@{
    Array(std::initializer_list<Value> values);
    explicit Array(std::vector<Value> values);
    ///@}
    /// Another handle to the same array: no element is copied.
    ///@{
    Array(const Array& other);
    Array(Array&& other) noexcept;
    Array& operator=(const Array& other);
    Array& operator=(Array&& other) noexcept;
    ///@}
    ~Array();

    /// The number of elements.
    size_t size() const noexcept;
    /// Whether it has no element.
    bool empty() const noexcept { return size() == 0; }
    /// The element at i; throws std::out_of_range past the end.
    const Value& operator[](size_t i) const;
    /// Replaces the element at i; throws std::out_of_range past the end.
    void set(size_t i, Value v);
    /// Appends v.
    void push_back(Value v);
    /// Makes room for n elements in all, so that appending does not move them.
    void reserve(size_t n);
    /// The elements in order, read in place.
    ///@{
    const Value* begin() const noexcept;
    const Value* end() const noexcept;
    ///@}

    /// A one-level copy: a new array holding the same elements.
    Array copy() const;
    /// A deep copy that shares nothing with any reply or other holder.
    Array detached() const;
    /// Whether both handles are to one array (not whether they are equal).
    bool isSame(const Array& other) const noexcept { return node_ == other.node_; }

private:
    friend class Value;
    friend class detail::Builder;
    friend class detail::Copier;
    struct Adopt {};
    Array(detail::ArrayNode* node, Adopt) noexcept : node_(node) {}
    detail::ArrayNode* node_;
};

/// A JSON object: a shared handle to its entries, keys in insertion order
/// (copies of the handle see one another's changes; mutableCopy() makes a new
/// one). The opt... reads never throw; the ...Value reads throw ValueError.
class Dictionary {
public:
    /// What iteration yields: the key and the value, both read in place.
    using Entry = std::pair<std::string_view, const Value&>;

    /// A forward iterator over the entries, in insertion order.
    class const_iterator {
    public:
        /// The standard iterator types.
        ///@{
        using iterator_category = std::forward_iterator_tag;
        using value_type = Entry;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = Entry;
        ///@}
        /// At the entry whose key and value are these (begin() and end() make them).
        const_iterator(const Value* key = nullptr, const Value* value = nullptr) noexcept : key_(key), value_(value) {}
        /// The entry here.
        Entry operator*() const noexcept;
        /// On to the next entry.
        ///@{
        const_iterator& operator++() noexcept;
        const_iterator operator++(int) noexcept {
            const_iterator before = *this;
            ++*this;
            return before;
        }
        ///@}
        /// Whether both are at the same entry.
        friend bool operator==(const const_iterator& a, const const_iterator& b) noexcept { return a.value_ == b.value_; }

    private:
        const Value* key_;
        const Value* value_;
    };

    /// A new, empty, writable dictionary of its own.
    Dictionary();
    /// A new, writable dictionary of its own holding entries in their order
    /// (a key given twice keeps its place and takes the later value).
    Dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries);
    /// Another handle to the same dictionary: no entry is copied.
    ///@{
    Dictionary(const Dictionary& other);
    Dictionary(Dictionary&& other) noexcept;
    Dictionary& operator=(const Dictionary& other);
    Dictionary& operator=(Dictionary&& other) noexcept;
    ///@}
    ~Dictionary();

    /// The number of entries.
    size_t size() const noexcept;
    /// Whether it has no entry.
    bool empty() const noexcept { return size() == 0; }
    /// The entries in insertion order, read in place.
    ///@{
    const_iterator begin() const noexcept;
    const_iterator end() const noexcept;
    ///@}

    /// The stored value, or nullptr when the key is absent.
    const Value* find(std::string_view key) const noexcept;
    /// Whether key is present (with JSON null too).
    bool contains(std::string_view key) const noexcept { return find(key) != nullptr; }
    /// The stored value as it stands: nothing when the key is absent, JSON null
    /// when null is stored.
    std::optional<Value> optValue(std::string_view key) const;
    /// The same, with JSON null for an absent key.
    Value valueOrNull(std::string_view key) const;

    /// Stores v under key. Throws ValueError on a read-only dictionary.
    void set(std::string_view key, Value v);
    /// Stores v, or removes the key when v is nothing.
    void setValue(std::string_view key, std::optional<Value> v);
    /// Removes key, if present; the others keep their order. Throws ValueError
    /// on a read-only dictionary.
    void remove(std::string_view key);
    /// Makes room for n entries in all.
    void reserve(size_t n);

    /// One-level copies: a writable one, and one that refuses every write.
    ///@{
    Dictionary mutableCopy() const;
    Dictionary immutableCopy() const;
    ///@}
    /// A deep copy that shares nothing with any reply or other holder.
    Dictionary detached() const;
    /// Whether writes are refused (an immutableCopy()).
    bool isReadOnly() const noexcept;
    /// Whether both handles are to one dictionary (not whether they are equal).
    bool isSame(const Dictionary& other) const noexcept { return node_ == other.node_; }

    /// Typed reads that never throw. Absent keys, JSON null and values of the
    /// wrong kind give the neutral value (nothing, 0, false, an empty
    /// dictionary); numeric text is read as its number, and a number as text
    /// by optString.
    ///@{
    std::optional<std::string> optString(std::string_view key) const;
    int32_t optInt(std::string_view key) const;
    long optLong(std::string_view key) const;
    bool optBool(std::string_view key) const;
    double optDouble(std::string_view key) const;
    float optFloat(std::string_view key) const;
    std::optional<Array> optArray(std::string_view key) const;
    Dictionary optDictionary(std::string_view key) const;
    ///@}

    /// The platform's plain readings: a number or numeric text; an absent key
    /// gives 0; null, an array or a dictionary throws ValueError naming the key.
    ///@{
    int32_t intValue(std::string_view key) const;
    long longValue(std::string_view key) const;
    float floatValue(std::string_view key) const;
    double doubleValue(std::string_view key) const;
    ///@}

private:
    // The readings above: a number by its own reading, anything else by
    // other, which locates what it throws at key.
    template <class T, class Read>
    T reading(std::string_view key, Read number, T (*other)(std::string_view, const Value&)) const;
    static int32_t intAt(std::string_view key, const Value& v);
    static long longAt(std::string_view key, const Value& v);
    static float floatAt(std::string_view key, const Value& v);
    static double doubleAt(std::string_view key, const Value& v);
    friend class Value;
    friend class detail::Builder;
    friend class detail::Copier;
    friend class detail::PendingRead;
    friend class detail::BatchedCounts;
    struct Adopt {};
    Dictionary(detail::DictNode* node, Adopt) noexcept : node_(node) {}
    detail::DictNode* node_;
};

/// One JSON value: null, a boolean, a number of a kind, text, an Array or a
/// Dictionary. Made implicitly from each of them.
class Value {
public:
    /// What a value holds.
    enum class Type : uint8_t { Null, Boolean, Number, String, Array, Dictionary };

    /// JSON null.
    ///@{
    Value() noexcept { setTag(kNull); }
    Value(std::nullptr_t) noexcept : Value() {}
    ///@}
    /// A boolean.
    Value(bool b) noexcept;
    /// A pointer is not a boolean: no Value from one (text comes as const char*).
    Value(const void*) = delete;
    /// A number that keeps its kind: 32-bit, word-sized, unsigned word-sized,
    /// float or double.
    ///@{
    Value(int v) noexcept : Value(Number(static_cast<int32_t>(v))) {}
    Value(long v) noexcept : Value(Number(v)) {}
    Value(unsigned long v) noexcept : Value(Number(v)) {}
    Value(float v) noexcept : Value(Number(v)) {}
    Value(double v) noexcept : Value(Number(v)) {}
    Value(Number n) noexcept;
    ///@}
    /// Text, copied (held inline up to 15 bytes).
    ///@{
    Value(std::string_view s);
    Value(const std::string& s) : Value(std::string_view(s)) {}
    Value(const char* s) : Value(std::string_view(s)) {}
    ///@}
    /// A handle to the container (not a copy of it).
    ///@{
    Value(veltrane::Array a) noexcept;
    Value(veltrane::Dictionary d) noexcept;
    ///@}
    /// The same value; a container is shared, not copied.
    ///@{
    Value(const Value& other) {
        if (other.holdsNode()) copyNode(other);
        else std::memcpy(static_cast<void*>(this), static_cast<const void*>(&other), sizeof(Value));
    }
    Value(Value&& other) noexcept;
    Value& operator=(const Value& other);
    Value& operator=(Value&& other) noexcept;
    ///@}
    ~Value() {
        if (holdsNode()) release();
    }

    /// What it holds.
    Type type() const noexcept;
    /// Whether it holds that kind.
    ///@{
    bool isNull() const noexcept { return tag() == kNull; }
    bool isBool() const noexcept { return tag() == kBool; }
    bool isNumber() const noexcept { return tag() >= kInt32 && tag() <= kDouble; }
    bool isString() const noexcept { return tag() <= kLongString; }
    bool isArray() const noexcept { return tag() == kArray; }
    bool isDictionary() const noexcept { return tag() == kDictionary; }
    ///@}

    /// Checked access; each throws ValueError naming what the value really is.
    /// A string view lives as long as this value (or its reply) does.
    ///@{
    bool asBool() const;
    Number asNumber() const;
    std::string_view asString() const;
    const veltrane::Array& asArray() const;
    const veltrane::Dictionary& asDictionary() const;
    ///@}

    /// Unchecked views: nothing when the value is of another kind.
    ///@{
    std::optional<std::string_view> stringIf() const noexcept {
        if (tag() < kLongString) return std::string_view(reinterpret_cast<const char*>(this), tag());
        if (tag() == kLongString) {
            uint32_t size;
            std::memcpy(&size, rest_, sizeof size);
            return std::string_view(payload_.chars, size);
        }
        return std::nullopt;
    }
    std::optional<Number> numberIf() const noexcept {
        switch (tag()) {
        case kInt32: return Number(static_cast<int32_t>(payload_.i));
        case kLong: return Number(static_cast<long>(payload_.i));
        case kUnsignedLong: return Number(static_cast<unsigned long>(payload_.u));
        case kFloat: return Number(payload_.f);
        case kDouble: return Number(payload_.d);
        default: return std::nullopt;
        }
    }
    const veltrane::Array* arrayIf() const noexcept { return isArray() ? &payload_.array : nullptr; }
    const veltrane::Dictionary* dictionaryIf() const noexcept { return isDictionary() ? &payload_.dictionary : nullptr; }
    ///@}

    /// The platform's plain readings: numbers convert, text is read by its
    /// leading number, booleans are 1 or 0; null, arrays and dictionaries throw.
    ///@{
    int32_t intValue() const;
    long longValue() const;
    unsigned long unsignedLongValue() const;
    float floatValue() const;
    double doubleValue() const;
    ///@}
    /// Booleans and numbers as such; text is true for "true"/"yes" (any case)
    /// or a non-zero leading integer; null, arrays and dictionaries throw.
    bool boolValue() const;

    /// A deep copy that shares nothing with any reply or other holder.
    Value detached() const;

    /// Deep value equality; dictionaries compare without regard to key order.
    friend bool operator==(const Value& a, const Value& b);

    /// The kind's name for messages: "null", "a boolean", "a number"...
    const char* kindName() const noexcept;

private:
    friend class detail::Builder;
    friend class detail::Copier;
    friend class detail::Access;

    /// The tag, in the value's last byte: 0 to 15 is an inline string of that
    /// many bytes; the rest name the kind.
    /// payload_.chars: the bytes of a string node; its size in rest_[0..3].
    static constexpr uint8_t kLongString = 0x10;
    static constexpr uint8_t kNull = 0x11, kBool = 0x12;
    static constexpr uint8_t kInt32 = 0x13, kLong = 0x14, kUnsignedLong = 0x15, kFloat = 0x16, kDouble = 0x17;
    static constexpr uint8_t kArray = 0x18, kDictionary = 0x19;

    uint8_t tag() const noexcept { return tag_; }
    void setTag(uint8_t t) noexcept { tag_ = t; }
    bool holdsNode() const noexcept { return tag_ == kLongString || tag_ >= kArray; }
    void copyNode(const Value& other);
    /// The node this value refers to (long string, array or dictionary), or nullptr.
    detail::Node* node() const noexcept;
    void retain() const noexcept;
    void release() noexcept;
    /// Takes over other's bits and count; other becomes null.
    void steal(Value& other) noexcept;

    union Payload {
        int64_t i;
        uint64_t u;
        float f;
        double d;
        bool b;
        const char* chars;
        veltrane::Array array;
        veltrane::Dictionary dictionary;
        Payload() noexcept : u(0) {}
        ~Payload() {}
    } payload_;
    char rest_[7] = {};  ///< an inline string's bytes 8 to 14; a long string's size
    uint8_t tag_;
};

static_assert(sizeof(Value) == 16, "a Value is 16 bytes");

/// Deep equality of the elements (of the entries, without regard to order).
///@{
bool operator==(const Array& a, const Array& b);
bool operator==(const Dictionary& a, const Dictionary& b);
///@}

/// A copy of record (any record type) that holds its own values, detached from
/// the reply it was read from: every Value, Array and Dictionary it keeps is
/// copied deeply. Use it for a record kept long after its reply (a number
/// chosen for an order, a card kept for a session): the record then holds only
/// its own few bytes, not the whole page it came in. Within the copy, handles
/// that were shared become separate containers.
template <class Record>
Record detach(const Record& record);

inline std::optional<Value> Dictionary::optValue(std::string_view key) const {
    const Value* v = find(key);
    return v ? std::optional<Value>(*v) : std::nullopt;
}

// A record's reads are mostly numbers: those convert here, without a call.
template <class T, class Read>
[[gnu::always_inline]] inline T Dictionary::reading(std::string_view key, Read number, T (*other)(std::string_view, const Value&)) const {
    const Value* v = find(key);
    if (!v) return 0;
    if (std::optional<Number> n = v->numberIf()) return number(*n);
    return other(key, *v);
}
inline int32_t Dictionary::intValue(std::string_view key) const { return reading(key, [](const Number& n) { return n.intValue(); }, &intAt); }
inline long Dictionary::longValue(std::string_view key) const { return reading(key, [](const Number& n) { return n.longValue(); }, &longAt); }
inline float Dictionary::floatValue(std::string_view key) const { return reading(key, [](const Number& n) { return n.floatValue(); }, &floatAt); }
inline double Dictionary::doubleValue(std::string_view key) const { return reading(key, [](const Number& n) { return n.doubleValue(); }, &doubleAt); }

namespace detail {
/// The counts one thread has taken (positive) or dropped (negative) on one
/// reply and not yet applied to it.
struct CountBatch {
    void* arena = nullptr;  ///< the reply, or nothing
    int64_t delta = 0;      ///< counts taken less counts dropped
    bool retains = false;  ///< counts taken are gathered too
    bool open = false;     ///< no reply picked yet: the first one dropped on
};

/// While alive on a thread, the counts the thread takes and drops on one reply
/// are gathered and applied at once when it ends: atomic counting is the most
/// of what a page of records costs to make and to free. With an anchor (a
/// handle of the reply, counted, that outlives the scope, so that the reply
/// stays alive whatever is gathered) on its reply, both ways; without one,
/// only counts dropped, on the first reply one is dropped on. Other replies
/// and other threads count as ever. Scopes nest.
class BatchedCounts {
public:
    /// Starts gathering, on anchor's reply or, without one, on the first
    /// reply a count is dropped on.
    explicit BatchedCounts(const Dictionary* anchor = nullptr) noexcept;
    /// Applies what was gathered (freeing the reply if no count is left).
    ~BatchedCounts();
    BatchedCounts(const BatchedCounts&) = delete;
    BatchedCounts& operator=(const BatchedCounts&) = delete;

private:
    CountBatch outer_;
};

/// While alive on a thread, copying a Value, Array or Dictionary there makes a
/// deep, detached copy instead of sharing.
class DetachingCopies {
public:
    DetachingCopies() noexcept;
    ~DetachingCopies();
    DetachingCopies(const DetachingCopies&) = delete;
    DetachingCopies& operator=(const DetachingCopies&) = delete;

private:
    bool previous_;
};
} // namespace detail

template <class Record>
Record detach(const Record& record) {
    detail::DetachingCopies scope;
    return Record(record);
}

} // namespace veltrane
