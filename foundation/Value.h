// The JSON value model: null, boolean, number, string, array and dictionary.
//
// Arrays and dictionaries are shared handles: copying a Value, an Array or a
// Dictionary copies the handle, so every holder sees the same container and
// its later changes. copy()/mutableCopy() make a new one-level copy (the
// elements themselves are shared). A dictionary keeps its keys in insertion
// order; setting an existing key replaces the value in place.
//
// JSON null and an absent key are different things everywhere: find() returns
// nullptr for an absent key and a pointer to a null Value for a stored null.
//
// Thread rules: values keep no locks. A container may be read from several
// threads at once, but must not be changed while another thread uses it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "foundation/Number.h"

namespace veltrane {

// A value lacks the reading asked of it (the integer value of null, the keys of
// a string...), or a read-only dictionary was written to. The error says where
// when it is known: its description is "<path>: <reason>", the path naming the
// key and elements that led to the value ("data[3].Rank"), or the reason alone.
class ValueError : public std::runtime_error {
public:
    explicit ValueError(std::string reason) : ValueError(std::string(), std::move(reason)) {}

    // The same error one level further out: segment is a key ("Rank") or an
    // element ("[3]") under which the failing value was found.
    ValueError within(std::string_view segment) const;

    const std::string& path() const noexcept { return path_; }
    const std::string& reason() const noexcept { return reason_; }

private:
    ValueError(std::string path, std::string reason)
        : std::runtime_error(path.empty() ? reason : path + ": " + reason), path_(std::move(path)), reason_(std::move(reason)) {}
    std::string path_;
    std::string reason_;
};

// Runs read() and locates a ValueError it throws under segment.
template <class Read>
auto locatedAt(std::string_view segment, Read&& read) -> decltype(read()) {
    try {
        return read();
    } catch (const ValueError& e) {
        throw e.within(segment);
    }
}

class Value;
class Array;
class Dictionary;

class Array {
public:
    Array();
    Array(std::initializer_list<Value> values);
    explicit Array(std::vector<Value> values);

    size_t size() const noexcept;
    bool empty() const noexcept { return size() == 0; }
    const Value& operator[](size_t i) const;
    Value& operator[](size_t i);
    void push_back(Value v);
    void reserve(size_t n);
    std::vector<Value>::const_iterator begin() const noexcept;
    std::vector<Value>::const_iterator end() const noexcept;

    Array copy() const;
    bool isSame(const Array& other) const noexcept { return items_ == other.items_; }

private:
    std::shared_ptr<std::vector<Value>> items_;
};

class Dictionary {
public:
    using Entry = std::pair<std::string, Value>;

    Dictionary();
    Dictionary(std::initializer_list<Entry> entries);

    size_t size() const noexcept;
    bool empty() const noexcept { return size() == 0; }
    const std::vector<Entry>& entries() const noexcept;
    std::vector<Entry>::const_iterator begin() const noexcept;
    std::vector<Entry>::const_iterator end() const noexcept;

    // The stored value, or nullptr when the key is absent.
    const Value* find(std::string_view key) const;
    bool contains(std::string_view key) const { return find(key) != nullptr; }
    // The stored value as it stands: nothing when the key is absent, JSON null
    // when null is stored.
    std::optional<Value> optValue(std::string_view key) const;
    // The same, with JSON null for an absent key.
    Value valueOrNull(std::string_view key) const;

    // Stores v under key. Throws ValueError on a read-only dictionary.
    void set(std::string_view key, Value v);
    // Stores v, or removes the key when v is nothing.
    void setValue(std::string_view key, std::optional<Value> v);
    void remove(std::string_view key);
    void reserve(size_t n);

    // One-level copies: a writable one, and one that refuses every write.
    Dictionary mutableCopy() const;
    Dictionary immutableCopy() const;
    bool isReadOnly() const noexcept;
    bool isSame(const Dictionary& other) const noexcept { return storage_ == other.storage_; }

    // Typed reads that never throw. Absent keys, JSON null and values of the
    // wrong kind give the neutral value; numeric text is read as its number.
    std::optional<std::string> optString(std::string_view key) const;
    int32_t optInt(std::string_view key) const;
    long optLong(std::string_view key) const;
    bool optBool(std::string_view key) const;
    double optDouble(std::string_view key) const;
    float optFloat(std::string_view key) const;
    std::optional<Array> optArray(std::string_view key) const;
    Dictionary optDictionary(std::string_view key) const;

    // The platform's plain readings: a number or numeric text; an absent key
    // gives 0; null, an array or a dictionary throws ValueError.
    int32_t intValue(std::string_view key) const;
    long longValue(std::string_view key) const;
    float floatValue(std::string_view key) const;
    double doubleValue(std::string_view key) const;

private:
    struct Storage;
    explicit Dictionary(std::shared_ptr<Storage> s) : storage_(std::move(s)) {}
    std::shared_ptr<Storage> storage_;
};

class Value {
public:
    enum class Type : uint8_t { Null, Boolean, Number, String, Array, Dictionary };

    Value() noexcept = default;
    Value(std::nullptr_t) noexcept {}
    Value(bool b) noexcept : v_(b) {}
    Value(int v) noexcept : v_(Number(static_cast<int32_t>(v))) {}
    Value(long v) noexcept : v_(Number(v)) {}
    Value(unsigned long v) noexcept : v_(Number(v)) {}
    Value(float v) noexcept : v_(Number(v)) {}
    Value(double v) noexcept : v_(Number(v)) {}
    Value(Number n) noexcept : v_(n) {}
    Value(std::string s) noexcept : v_(std::move(s)) {}
    Value(std::string_view s) : v_(std::string(s)) {}
    Value(const char* s) : v_(std::string(s)) {}
    Value(veltrane::Array a) noexcept : v_(std::move(a)) {}
    Value(veltrane::Dictionary d) noexcept : v_(std::move(d)) {}

    Type type() const noexcept { return static_cast<Type>(v_.index()); }
    bool isNull() const noexcept { return type() == Type::Null; }
    bool isBool() const noexcept { return type() == Type::Boolean; }
    bool isNumber() const noexcept { return type() == Type::Number; }
    bool isString() const noexcept { return type() == Type::String; }
    bool isArray() const noexcept { return type() == Type::Array; }
    bool isDictionary() const noexcept { return type() == Type::Dictionary; }

    // Checked access; each throws ValueError naming what the value really is.
    bool asBool() const;
    const Number& asNumber() const;
    const std::string& asString() const;
    const veltrane::Array& asArray() const;
    const veltrane::Dictionary& asDictionary() const;

    // Unchecked views: nullptr when the value is of another kind.
    const std::string* stringIf() const noexcept { return std::get_if<std::string>(&v_); }
    const Number* numberIf() const noexcept { return std::get_if<Number>(&v_); }
    const veltrane::Array* arrayIf() const noexcept { return std::get_if<veltrane::Array>(&v_); }
    const veltrane::Dictionary* dictionaryIf() const noexcept { return std::get_if<veltrane::Dictionary>(&v_); }

    // The platform's plain readings: numbers convert, text is read by its
    // leading number, booleans are 1 or 0; null, arrays and dictionaries throw.
    int32_t intValue() const;
    long longValue() const;
    unsigned long unsignedLongValue() const;
    float floatValue() const;
    double doubleValue() const;
    // Booleans and numbers as such; text is true for "true"/"yes" (any case)
    // or a non-zero leading integer; null, arrays and dictionaries throw.
    bool boolValue() const;

    // Deep value equality; dictionaries compare without regard to key order.
    friend bool operator==(const Value& a, const Value& b);

    // The kind's name for messages: "null", "a boolean", "a number"...
    const char* kindName() const noexcept;

private:
    std::variant<std::monostate, bool, Number, std::string, veltrane::Array, veltrane::Dictionary> v_;
};

bool operator==(const Array& a, const Array& b);
bool operator==(const Dictionary& a, const Dictionary& b);

} // namespace veltrane
