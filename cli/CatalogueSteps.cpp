// The demo's catalogue steps: a number, a device, a plan with its packages and
// billing options, and a subscriber lookup.
#include <iomanip>
#include <sstream>

#include "veltrane/catalogue/BillingOption.h"
#include "veltrane/catalogue/CRMInfo.h"
#include "veltrane/catalogue/Compound.h"
#include "veltrane/catalogue/CompoundType.h"
#include "veltrane/catalogue/OfferMember.h"
#include "veltrane/catalogue/TelecomResource.h"
#include "veltrane/foundation/Await.h"
#include "cli/Demo.h"
#include "veltrane/foundation/JSON.h"

namespace veltrane::cli {

namespace {

std::string yuan(float amount) {
    std::ostringstream out;
    out << "¥" << std::fixed << std::setprecision(amount == static_cast<long>(amount) ? 0 : 2) << amount;
    return out.str();
}

// The description's text without its markup.
std::string plain(const std::string& html) {
    std::string out;
    bool inTag = false;
    for (char c : html) {
        if (c == '<') inTag = true;
        else if (c == '>') inTag = false;
        else if (!inTag) out += c;
    }
    return out;
}

constexpr int32_t kCompany = 1;
constexpr unsigned long kGroupNetwork = 2;

} // namespace

std::vector<Step> catalogueSteps() {
    return {
        {"Phone numbers on offer", [](Sale& sale, Transcript& t) {
             auto page = await<DataPage<NumberInfo>>([](auto done) { NumberInfo::listWithCompany(kCompany, kGroupNetwork, 0, 0, std::nullopt, 1, done); });
             if (!received(t, "getPhonePages", page)) return;
             t.line("page " + std::to_string(page.result->currentPage()) + " of " + std::to_string(page.result->totalPages()) + ", " +
                    std::to_string(page.result->totalRows()) + " numbers on " + stringForNumberType(kGroupNetwork).value_or("?"));
             if (!page.result->data() || page.result->data()->empty()) return t.line("no numbers on offer");
             const auto& numbers = *page.result->data();
             for (size_t i = 0; i < std::min<size_t>(4, numbers.size()); ++i)
                 t.line(stringFormattedAsPhoneNumber(text(numbers[i].phoneNumber())) + "   prepaid " + yuan(numbers[i].prefund()));
             sale.number = detach(numbers[1 % numbers.size()]);
         }},
        {"Lock the chosen number", [](Sale& sale, Transcript& t) {
             if (!t.needs(sale.number.has_value(), "a number chosen from the list")) return;
             std::string phone = text(sale.number->phoneNumber());
             auto locked = awaitFlag([&](auto done) { NumberInfo::lockPhoneNumber(phone, kCompany, done); });
             if (!locked.success) return t.failed("postLockPhone", locked.message);
             t.line(stringFormattedAsPhoneNumber(phone) + " locked: " + text(locked.message));
         }},
        {"Find a device by its IMEI and lock it", [](Sale& sale, Transcript& t) {
             auto units = await<DataPage<ProductInfo>>([](auto done) { ProductInfo::listForCompany(kCompany, std::string("86"), 101, done); });
             if (!received(t, "getGoodsPagesWithIMEI", units)) return;
             if (!units.result->data() || units.result->data()->empty()) return t.line("no device in stock");
             std::string imei = text(units.result->data()->front().serial());
             auto device = await<ProductInfo>([&](auto done) { ProductInfo::checkIMEI(imei, kCompany, done); });
             if (!received(t, "getGoodsByIMEI", device)) return;
             t.line("IMEI " + imei + ": " + text(device.result->name()) + ", " + yuan(device.result->price()));
             auto locked = awaitFlag([&](auto done) { ProductInfo::lockIMEI(imei, kCompany, done); });
             if (!locked.success) return t.failed("postLockImei", locked.message);
             t.line("device locked: " + text(locked.message));
             sale.device = detach(*device.result);
         }},
        {"Plan and plan item", [](Sale& sale, Transcript& t) {
             auto plans = await<std::vector<PlanInfo>>([](auto done) { PlanInfo::listWithCompany(kCompany, done); });
             if (!received(t, "getPlanList", plans)) return;
             if (plans.result->empty()) return t.line("no plans offered");
             sale.plan = detach(plans.result->front());
             auto items = await<std::vector<PlanItem>>([&](auto done) { PlanItem::listWithCompany(kCompany, sale.plan->ID(), std::nullopt, done); });
             if (!received(t, "getPlanProjectPages", items)) return;
             if (items.result->empty()) return t.line("no items under " + text(sale.plan->name()));
             sale.planItem = detach(items.result->front());
             t.line(text(sale.plan->name()) + " › " + text(sale.planItem->name()));
             auto description = await<Value>([&](auto done) { PlanItem::getDescriptionOfItem(sale.planItem->ID(), done); });
             if (!description.success) return t.failed("getPlanProjectInfo", description.message);
             t.line(plain(text(description.result)));
         }},
        {"Package types and packages", [](Sale& sale, Transcript& t) {
             if (!t.needs(sale.planItem.has_value(), "a plan item")) return;
             auto types = await<std::vector<CompoundType>>([](auto done) { CompoundType::listWithCallback(done); });
             if (!received(t, "listCompoundTypes", types)) return;
             for (const CompoundType& type : *types.result) {
                 auto packages = await<std::vector<Compound>>([&](auto done) { Compound::listWithPlanItemID(sale.planItem->ID(), type.ID(), done); });
                 if (!received(t, "listCompounds", packages)) return;
                 std::string names;
                 for (const Compound& p : *packages.result) names += (names.empty() ? "" : ", ") + text(p.name()) + " " + yuan(p.price());
                 t.line(text(type.name()) + ": " + (names.empty() ? "none" : names));
             }
         }},
        {"Billing options", [](Sale& sale, Transcript& t) {
             if (!t.needs(sale.planItem.has_value(), "a plan item")) return;
             auto options = await<std::vector<BillingOption>>([&](auto done) { BillingOption::listWithPlanItemID(sale.planItem->ID(), kCompany, done); });
             if (!received(t, "getBillingOptions", options)) return;
             for (const BillingOption& o : *options.result) t.line(text(o.name()) + ": " + text(o.description()));
         }},
        {"Look up an existing subscriber", [](Sale&, Transcript& t) {
             auto crm = await<CRMInfo>([](auto done) { CRMInfo::checkWithBusinessNumber("13312345678", done); });
             if (!received(t, "checkCRMInfo", crm)) return;
             t.line("133 1234 5678 belongs to " + text(crm.result->customerName()) + " (" + text(crm.result->identityName()) + ")");
             auto members = await<std::vector<OfferMember>>([](auto done) { OfferMember::getWithCompanyID(kCompany, "13312345678", done); });
             if (!received(t, "getOfferMembers", members)) return;
             for (const OfferMember& m : *members.result) t.line("offer member " + text(m.accountNumber()) + " " + text(m.productSpecName()));
             auto resources = await<std::vector<TelecomResource>>([](auto done) { TelecomResource::list(20, 501, 90001, done); });
             if (!received(t, "getResourceConfirm", resources)) return;
             for (const TelecomResource& r : *resources.result)
                 t.line(text(r.name()) + (r.isTel() ? " [电话]" : "") + (r.isWan() ? " [宽带]" : "") + (r.available() ? " 可用" : " 无资源"));
         }},
    };
}

} // namespace veltrane::cli
