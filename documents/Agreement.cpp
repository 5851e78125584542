// Agreement's listing and sheets.
#include "veltrane/documents/Agreement.h"

#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/RequestPattern.h"

namespace veltrane {

void Agreement::listWithSN(std::string SN, ResultCallback<std::vector<Agreement>> callback) {
    std::optional<User> user = Account::getCurrentUser();
    Dictionary params{{"CompanyId", NSBoxLong(user ? user->companyID() : 0)}, {"SN", std::move(SN)}};
    reply::get("getAgreementList", std::move(params), reply::convertList<Agreement>(std::move(callback)));
}

namespace {

constexpr const char* kWrongFormat = "服务器数据格式错误";

// The sheets' names from the reply's data: an array of texts, given as such
// or as JSON text.
reply::Delivery<std::vector<std::string>> sheetNames(const std::optional<std::string>& message, const std::optional<Value>& data) {
    using Result = reply::Delivery<std::vector<std::string>>;
    Value names = data.value_or(Value());
    if (std::optional<std::string_view> text = names.stringIf()) {
        try {
            names = parseJSON(*text);
        } catch (const JSONError& e) {
            return Result{false, std::string(e.what()), std::nullopt};
        }
    }
    const Array* list = names.arrayIf();
    if (!list) return Result{false, kWrongFormat, std::nullopt};
    std::vector<std::string> result;
    for (const Value& name : *list) {
        std::optional<std::string_view> text = name.stringIf();
        if (!text) return Result{false, kWrongFormat, std::nullopt};
        result.emplace_back(*text);
    }
    return Result{true, message, std::move(result)};
}

} // namespace

void Agreement::createSheetWithSN(std::string SN, const std::vector<Value>& andIDs, ResultCallback<std::vector<std::string>> callback) {
    std::string ids;
    for (const Value& id : andIDs) ids += describe(id) + ",";
    Dictionary params{{"SN", std::move(SN)}, {"ID", std::move(ids)}};
    reply::post("createAgreementSheet", std::move(params), reply::handle(std::move(callback), reply::Guard::off, sheetNames));
}

} // namespace veltrane
