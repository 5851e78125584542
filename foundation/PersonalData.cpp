// The masking rules, and the secrets and opt-in they consult.
#include "veltrane/foundation/PersonalData.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>

#include "veltrane/foundation/Log.h"

namespace veltrane {

namespace {

enum class Kind { identity, phone, person, payload };

// The keys under which the records' formats hold a person's data.
constexpr std::pair<std::string_view, Kind> kPersonalKeys[] = {
    // identity-document numbers
    {"CTCardNumber", Kind::identity}, {"AgentCTCardNumber", Kind::identity}, {"Number", Kind::identity}, {"idNumber", Kind::identity},
    {"IdentityNumber", Kind::identity}, {"CustomerIdentity", Kind::identity}, {"idCardNumber", Kind::identity},
    // phone numbers
    {"Phone", Kind::phone}, {"phone", Kind::phone}, {"Tel", Kind::phone}, {"contactTel", Kind::phone}, {"AccountNumber", Kind::phone},
    {"accNbr", Kind::phone}, {"subProdAccNbr", Kind::phone}, {"AcctNbr", Kind::phone}, {"number", Kind::phone},
    // people's names, birthdays and addresses
    {"CTUserName", Kind::person}, {"AgentCTUserName", Kind::person}, {"Consignee", Kind::person}, {"contactName", Kind::person},
    {"CustomerName", Kind::person}, {"customerName", Kind::person}, {"UserName", Kind::person}, {"Birthday", Kind::person},
    {"Address", Kind::person}, {"address", Kind::person}, {"CTAddress", Kind::person}, {"AgentCTAddress", Kind::person},
    {"CustomerAddress", Kind::person}, {"addressDesc", Kind::person}, {"AddressDesc", Kind::person}, {"contactAddress", Kind::person},
    // photos, their addresses, and the card as uploaded
    {"Picture", Kind::payload}, {"photo", Kind::payload}, {"idcard", Kind::payload}, {"CTPictureHeads", Kind::payload},
    {"CTPictureTails", Kind::payload}, {"AgentCTPictureHeads", Kind::payload}, {"AgentCTPictureTails", Kind::payload},
    {"CustomerPhotoFront", Kind::payload}, {"CustomerPhotoBack", Kind::payload}, {"CardFrontUrl", Kind::payload},
    {"CardBackUrl", Kind::payload},
};

// Keys that make a dictionary an identity card, whose "Name" is its holder's.
constexpr std::string_view kCardKeys[] = {"Number", "idNumber", "Gender", "gender", "Nation", "nationality", "Birthday"};

std::optional<Kind> kindOf(std::string_view key) {
    for (const auto& [k, kind] : kPersonalKeys)
        if (k == key) return kind;
    return std::nullopt;
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isAlnum(char c) { return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isBase64(char c) { return isAlnum(c) || c == '+' || c == '/'; }

uint32_t fnv1a(std::string_view text) {
    uint32_t h = 2166136261u;
    for (unsigned char c : text) h = (h ^ c) * 16777619u;
    return h;
}

std::string payloadMark(std::string_view payload) {
    char hash[12];
    std::snprintf(hash, sizeof hash, "%08x", fnv1a(payload));
    return "<" + std::to_string(payload.size()) + " chars #" + hash + ">";
}

// Keeps the first `head` and last `tail` digits (or characters, for an
// identity number) and masks the others, separators kept.
std::string keep(std::string_view text, size_t head, size_t tail, bool digitsOnly) {
    auto counts = [&](char c) { return !digitsOnly || isDigit(c); };
    size_t total = static_cast<size_t>(std::count_if(text.begin(), text.end(), counts));
    if (total < head + tail + 2) head = tail = 0;
    std::string out;
    size_t seen = 0;
    for (char c : text) {
        if (!counts(c)) {
            out += c;
            continue;
        }
        out += seen < head || seen >= total - tail ? c : '*';
        ++seen;
    }
    return out;
}

std::string maskedAs(Kind kind, std::string_view text) {
    if (text.empty()) return std::string();  // nothing to hide
    switch (kind) {
    case Kind::identity: return keep(text, 2, 2, false);
    case Kind::phone: return keep(text, 3, 4, true);
    case Kind::person: return "***";
    case Kind::payload: return payloadMark(text);
    }
    return std::string(text);
}

struct Secrets {
    std::mutex mutex;
    std::deque<std::string> last;
};
Secrets& secrets() {
    static Secrets s;
    return s;
}

std::atomic<bool> inClear{false};

// The phone number or identity number that starts at text[i] (a digit not
// after a letter or digit), masked, and how long it is; nothing when none does.
std::optional<std::pair<std::string, size_t>> numberAt(std::string_view text, size_t i) {
    auto digitsFrom = [&](size_t at) {
        size_t j = at;
        while (j < text.size() && isDigit(text[j])) ++j;
        return j - at;
    };
    auto endsWord = [&](size_t at) { return at >= text.size() || !isAlnum(text[at]); };
    size_t run = digitsFrom(i);
    // A resident ID number: 17 digits and a check digit or X.
    if (run == 18 && endsWord(i + 18)) return std::pair{keep(text.substr(i, 18), 2, 2, false), size_t{18}};
    if (run == 17 && i + 17 < text.size() && (text[i + 17] == 'X' || text[i + 17] == 'x') && endsWord(i + 18))
        return std::pair{keep(text.substr(i, 18), 2, 2, false), size_t{18}};
    // A mobile number: 11 digits from 13 to 19, whole or as "139 1234 5678" / "139-1234-5678".
    bool mobileStart = text[i] == '1' && i + 1 < text.size() && text[i + 1] >= '3' && text[i + 1] <= '9';
    if (mobileStart && run == 11 && endsWord(i + 11)) return std::pair{keep(text.substr(i, 11), 3, 4, true), size_t{11}};
    if (mobileStart && run == 3 && i + 13 <= text.size()) {
        char gap = text[i + 3];
        if ((gap == ' ' || gap == '-') && digitsFrom(i + 4) == 4 && text[i + 8] == gap && digitsFrom(i + 9) == 4 && endsWord(i + 13))
            return std::pair{keep(text.substr(i, 13), 3, 4, true), size_t{13}};
    }
    // A fixed line: an area code from 0, a dash, 7 or 8 digits.
    if (text[i] == '0' && (run == 3 || run == 4) && i + run < text.size() && text[i + run] == '-') {
        size_t local = digitsFrom(i + run + 1), length = run + 1 + local;
        if ((local == 7 || local == 8) && endsWord(i + length)) return std::pair{keep(text.substr(i, length), 3, 4, true), length};
    }
    return std::nullopt;
}

} // namespace

std::string maskPersonalText(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        if (isDigit(text[i]) && (i == 0 || !isAlnum(text[i - 1]))) {
            if (auto number = numberAt(text, i)) {
                out += number->first;
                i += number->second;
                continue;
            }
        }
        if (isBase64(text[i]) && (i == 0 || !isBase64(text[i - 1]))) {
            size_t j = i;
            while (j < text.size() && isBase64(text[j])) ++j;
            for (int padding = 0; padding < 2 && j < text.size() && text[j] == '='; ++padding) ++j;
            // Digests (hex only) are nobody's; a photo's base64 never is hex only.
            bool hexOnly = std::all_of(text.begin() + i, text.begin() + j, [](char c) { return std::isxdigit(static_cast<unsigned char>(c)); });
            if (j - i >= 64 && !hexOnly) {
                out += payloadMark(text.substr(i, j - i));
                i = j;
                continue;
            }
        }
        out += text[i++];
    }
    // Secrets in one pass, the longest where several start at one place: a
    // secret that begins another leaves none of it, and no mark is searched
    // again (a secret may be part of "<secret>").
    std::lock_guard lock(secrets().mutex);
    const auto& last = secrets().last;
    if (last.empty()) return out;
    std::string masked;
    masked.reserve(out.size());
    for (size_t i = 0; i < out.size();) {
        size_t longest = 0;
        for (const std::string& secret : last)
            if (secret.size() > longest && out.compare(i, secret.size(), secret) == 0) longest = secret.size();
        if (longest) masked += "<secret>";
        else masked += out[i];
        i += std::max<size_t>(longest, 1);
    }
    return masked;
}

Value maskPersonalValue(const Value& value) {
    if (std::optional<std::string_view> text = value.stringIf()) return Value(maskPersonalText(*text));
    if (const Array* array = value.arrayIf()) {
        Array out;
        out.reserve(array->size());
        for (const Value& element : *array) out.push_back(maskPersonalValue(element));
        return out;
    }
    const Dictionary* dictionary = value.dictionaryIf();
    if (!dictionary) return value;
    bool card = std::any_of(std::begin(kCardKeys), std::end(kCardKeys), [&](std::string_view k) { return dictionary->contains(k); });
    Dictionary out;
    out.reserve(dictionary->size());
    for (const auto& [key, element] : *dictionary) {
        std::optional<Kind> kind = kindOf(key);
        if (!kind && card && (key == "Name" || key == "name")) kind = Kind::person;
        std::optional<std::string> text = element.stringIf() ? std::optional(std::string(*element.stringIf()))
                                          : element.isNumber() ? std::optional(element.asNumber().text())
                                                               : std::nullopt;
        if (kind && text) out.set(key, maskedAs(*kind, *text));
        else out.set(key, maskPersonalValue(element));
    }
    return out;
}

void registerSecret(std::string secret) {
    if (secret.size() < 4) return;  // too short to tell from other text
    std::lock_guard lock(secrets().mutex);
    auto& last = secrets().last;
    if (std::find(last.begin(), last.end(), secret) != last.end()) return;
    last.push_back(std::move(secret));
    if (last.size() > 32) last.pop_front();
}

void logPersonalDataInClear(bool clear) {
    if (inClear.exchange(clear) == clear || !clear) return;
    log("personal data is shown in clear in this log: for development builds only");
}

bool loggingPersonalDataInClear() noexcept { return inClear.load(); }

} // namespace veltrane
