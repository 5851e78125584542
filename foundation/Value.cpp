// Containers, readings and equality of the JSON value model.
#include "foundation/Value.h"

#include <algorithm>
#include <cctype>
#include <unordered_map>

namespace veltrane {

ValueError ValueError::within(std::string_view segment) const {
    std::string path(segment);
    if (!path_.empty()) {
        if (path_.front() != '[') path += '.';
        path += path_;
    }
    return ValueError(std::move(path), reason_);
}

// ---- Array -----------------------------------------------------------------

Array::Array() : items_(std::make_shared<std::vector<Value>>()) {}
Array::Array(std::initializer_list<Value> values) : items_(std::make_shared<std::vector<Value>>(values)) {}
Array::Array(std::vector<Value> values) : items_(std::make_shared<std::vector<Value>>(std::move(values))) {}

size_t Array::size() const noexcept { return items_->size(); }
const Value& Array::operator[](size_t i) const { return items_->at(i); }
Value& Array::operator[](size_t i) { return items_->at(i); }
void Array::push_back(Value v) { items_->push_back(std::move(v)); }
void Array::reserve(size_t n) { items_->reserve(n); }
std::vector<Value>::const_iterator Array::begin() const noexcept { return items_->cbegin(); }
std::vector<Value>::const_iterator Array::end() const noexcept { return items_->cend(); }
Array Array::copy() const { return Array(*items_); }

// ---- Dictionary --------------------------------------------------------------

// Small dictionaries (the usual server record) are searched linearly; past
// kIndexed entries a hash index keeps lookups and inserts constant-time, so an
// object with many keys cannot make parsing quadratic.
struct Dictionary::Storage {
    static constexpr size_t kIndexed = 16;

    // Looks keys up by string_view without making a string.
    struct KeyHash {
        using is_transparent = void;
        size_t operator()(std::string_view key) const noexcept { return std::hash<std::string_view>()(key); }
    };
    using Index = std::unordered_map<std::string, size_t, KeyHash, std::equal_to<>>;

    std::vector<Entry> entries;
    std::unique_ptr<Index> index;
    bool readOnly = false;

    Entry* lookup(std::string_view key) {
        if (index) {
            auto it = index->find(key);
            return it == index->end() ? nullptr : &entries[it->second];
        }
        for (Entry& e : entries)
            if (e.first == key) return &e;
        return nullptr;
    }
    void buildIndex() {
        index = std::make_unique<Index>();
        index->reserve(entries.size() * 2);
        for (size_t i = 0; i < entries.size(); ++i) index->emplace(entries[i].first, i);
    }
    void checkWritable() const {
        if (readOnly) throw ValueError("attempt to change a read-only dictionary");
    }
};

Dictionary::Dictionary() : storage_(std::make_shared<Storage>()) {}
Dictionary::Dictionary(std::initializer_list<Entry> entries) : Dictionary() {
    for (const Entry& e : entries) set(e.first, e.second);
}

size_t Dictionary::size() const noexcept { return storage_->entries.size(); }
const std::vector<Dictionary::Entry>& Dictionary::entries() const noexcept { return storage_->entries; }
std::vector<Dictionary::Entry>::const_iterator Dictionary::begin() const noexcept { return storage_->entries.cbegin(); }
std::vector<Dictionary::Entry>::const_iterator Dictionary::end() const noexcept { return storage_->entries.cend(); }

const Value* Dictionary::find(std::string_view key) const {
    const Entry* e = storage_->lookup(key);
    return e ? &e->second : nullptr;
}

std::optional<Value> Dictionary::optValue(std::string_view key) const {
    const Value* v = find(key);
    return v ? std::optional<Value>(*v) : std::nullopt;
}

Value Dictionary::valueOrNull(std::string_view key) const {
    const Value* v = find(key);
    return v ? *v : Value();
}

void Dictionary::set(std::string_view key, Value v) {
    Storage& s = *storage_;
    s.checkWritable();
    if (Entry* e = s.lookup(key)) {
        e->second = std::move(v);
        return;
    }
    s.entries.emplace_back(std::string(key), std::move(v));
    if (s.index) s.index->emplace(s.entries.back().first, s.entries.size() - 1);
    else if (s.entries.size() > Storage::kIndexed) s.buildIndex();
}

void Dictionary::setValue(std::string_view key, std::optional<Value> v) {
    if (v) set(key, std::move(*v));
    else remove(key);
}

void Dictionary::remove(std::string_view key) {
    Storage& s = *storage_;
    s.checkWritable();
    auto it = std::find_if(s.entries.begin(), s.entries.end(), [&](const Entry& e) { return e.first == key; });
    if (it == s.entries.end()) return;
    s.entries.erase(it);
    if (s.index) s.buildIndex();
}

void Dictionary::reserve(size_t n) { storage_->entries.reserve(n); }

Dictionary Dictionary::mutableCopy() const {
    auto s = std::make_shared<Storage>();
    s->entries = storage_->entries;
    if (s->entries.size() > Storage::kIndexed) s->buildIndex();
    return Dictionary(std::move(s));
}

Dictionary Dictionary::immutableCopy() const {
    Dictionary copy = mutableCopy();
    copy.storage_->readOnly = true;
    return copy;
}

bool Dictionary::isReadOnly() const noexcept { return storage_->readOnly; }

// ---- Readings -----------------------------------------------------------------

namespace {

// Numeric reading shared by the opt accessors: numbers, numeric text and
// booleans have one; everything else has none.
template <class T, class FromNumber, class FromText>
T numericReading(const Value* v, FromNumber fromNumber, FromText fromText) noexcept {
    if (!v) return T{};
    if (const Number* n = v->numberIf()) return fromNumber(*n);
    if (const std::string* s = v->stringIf()) return fromText(*s);
    if (v->isBool()) return static_cast<T>(v->asBool() ? 1 : 0);
    return T{};
}

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

std::optional<std::string> Dictionary::optString(std::string_view key) const {
    const Value* v = find(key);
    if (!v) return std::nullopt;
    if (const std::string* s = v->stringIf()) return *s;
    if (const Number* n = v->numberIf()) return n->text();
    if (v->isBool()) return std::string(v->asBool() ? "true" : "false");
    return std::nullopt;
}

int32_t Dictionary::optInt(std::string_view key) const {
    return static_cast<int32_t>(optLong(key));
}

long Dictionary::optLong(std::string_view key) const {
    return numericReading<long>(
        find(key), [](const Number& n) { return n.longValue(); },
        [](const std::string& s) { return static_cast<long>(leadingInteger(s)); });
}

double Dictionary::optDouble(std::string_view key) const {
    return numericReading<double>(
        find(key), [](const Number& n) { return n.doubleValue(); }, [](const std::string& s) { return leadingDouble(s); });
}

float Dictionary::optFloat(std::string_view key) const {
    return numericReading<float>(
        find(key), [](const Number& n) { return n.floatValue(); },
        [](const std::string& s) { return Number(leadingDouble(s)).floatValue(); });
}

bool Dictionary::optBool(std::string_view key) const {
    const Value* v = find(key);
    if (!v) return false;
    if (v->isBool()) return v->asBool();
    if (const Number* n = v->numberIf()) return n->boolValue();
    if (const std::string* s = v->stringIf()) return textIsTrue(*s);
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

int32_t Dictionary::intValue(std::string_view key) const {
    const Value* v = find(key);
    return v ? locatedAt(key, [&] { return v->intValue(); }) : 0;
}
long Dictionary::longValue(std::string_view key) const {
    const Value* v = find(key);
    return v ? locatedAt(key, [&] { return v->longValue(); }) : 0;
}
float Dictionary::floatValue(std::string_view key) const {
    const Value* v = find(key);
    return v ? locatedAt(key, [&] { return v->floatValue(); }) : 0;
}
double Dictionary::doubleValue(std::string_view key) const {
    const Value* v = find(key);
    return v ? locatedAt(key, [&] { return v->doubleValue(); }) : 0;
}

// ---- Value ---------------------------------------------------------------------

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
[[noreturn]] void wrongKind(const Value& v, const char* wanted) {
    throw ValueError(std::string(v.kindName()) + " is not " + wanted);
}
[[noreturn]] void noReading(const Value& v, const char* reading) {
    throw ValueError(std::string(v.kindName()) + " has no " + reading);
}
} // namespace

bool Value::asBool() const {
    if (const bool* b = std::get_if<bool>(&v_)) return *b;
    wrongKind(*this, "a boolean");
}
const Number& Value::asNumber() const {
    if (const Number* n = numberIf()) return *n;
    wrongKind(*this, "a number");
}
const std::string& Value::asString() const {
    if (const std::string* s = stringIf()) return *s;
    wrongKind(*this, "a string");
}
const Array& Value::asArray() const {
    if (const veltrane::Array* a = arrayIf()) return *a;
    wrongKind(*this, "an array");
}
const Dictionary& Value::asDictionary() const {
    if (const veltrane::Dictionary* d = dictionaryIf()) return *d;
    wrongKind(*this, "a dictionary");
}

long Value::longValue() const {
    if (const Number* n = numberIf()) return n->longValue();
    if (const std::string* s = stringIf()) return static_cast<long>(leadingInteger(*s));
    if (isBool()) return asBool() ? 1 : 0;
    noReading(*this, "integer value");
}
int32_t Value::intValue() const { return static_cast<int32_t>(longValue()); }
unsigned long Value::unsignedLongValue() const {
    if (const Number* n = numberIf()) return n->unsignedLongValue();
    return static_cast<unsigned long>(longValue());
}
double Value::doubleValue() const {
    if (const Number* n = numberIf()) return n->doubleValue();
    if (const std::string* s = stringIf()) return leadingDouble(*s);
    if (isBool()) return asBool() ? 1 : 0;
    noReading(*this, "double value");
}
float Value::floatValue() const {
    if (const Number* n = numberIf()) return n->floatValue();
    if (isNull() || isArray() || isDictionary()) noReading(*this, "float value");
    return Number(doubleValue()).floatValue();
}
bool Value::boolValue() const {
    if (isBool()) return asBool();
    if (const Number* n = numberIf()) return n->boolValue();
    if (const std::string* s = stringIf()) return textIsTrue(*s);
    noReading(*this, "boolean value");
}

bool operator==(const Array& a, const Array& b) {
    if (a.isSame(b)) return true;
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin());
}

bool operator==(const Dictionary& a, const Dictionary& b) {
    if (a.isSame(b)) return true;
    if (a.size() != b.size()) return false;
    for (const auto& [key, value] : a) {
        const Value* other = b.find(key);
        if (!other || !(*other == value)) return false;
    }
    return true;
}

bool operator==(const Value& a, const Value& b) { return a.v_ == b.v_; }

} // namespace veltrane
