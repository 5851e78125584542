// The sales catalogue against the sandbox over real HTTP: one listing, one
// lock and one single-record call of each record family.
#include "veltrane/catalogue/BillingOption.h"
#include "veltrane/catalogue/CRMInfo.h"
#include "veltrane/catalogue/Compound.h"
#include "veltrane/catalogue/CompoundType.h"
#include "veltrane/catalogue/NumberInfo.h"
#include "veltrane/catalogue/OfferMember.h"
#include "veltrane/catalogue/PlanInfo.h"
#include "veltrane/catalogue/PlanItem.h"
#include "veltrane/catalogue/ProductInfo.h"
#include "veltrane/catalogue/TelecomResource.h"
#include "support/SandboxTest.h"

namespace veltrane {
namespace {

using Catalogue = test::SandboxTest;

TEST_F(Catalogue, NumbersListLockAndFormat) {
    auto page = await<DataPage<NumberInfo>>([](auto done) { NumberInfo::listWithCompany(1, 2, 0, 0, std::nullopt, 1, done); });
    ASSERT_TRUE(page.success) << page.message.value_or("");
    ASSERT_FALSE(page.result->data()->empty());
    EXPECT_EQ(page.result->totalRows(), 40) << "two thirds of the numbers are on network 2";
    NumberInfo chosen = page.result->data()->back();
    std::string phone(chosen.phoneNumber()->asString());
    EXPECT_EQ(stringFormattedAsPhoneNumber(phone).size(), 13u);

    auto locked = awaitFlag([&](auto done) { NumberInfo::lockPhoneNumber(phone, 1, done); });
    EXPECT_TRUE(locked.success && locked.flag);
    auto again = awaitFlag([&](auto done) { NumberInfo::lockPhoneNumber(phone, 1, done); });
    EXPECT_FALSE(again.success || again.flag);
    EXPECT_EQ(again.message, "号码已被锁定: " + phone);
    EXPECT_TRUE(awaitFlag([&](auto done) { NumberInfo::unlockPhoneNumber(phone, 1, done); }).success);
}

TEST_F(Catalogue, DevicesByKeywordAndIMEI) {
    auto goods = await<DataPage<ProductInfo>>([](auto done) { ProductInfo::listForCompany(1, 1, "青岚 Q60", done); });
    ASSERT_TRUE(goods.success) << goods.message.value_or("");
    ASSERT_EQ(goods.result->data()->size(), 1u) << "the escaped keyword reached the server intact";
    EXPECT_EQ(goods.result->data()->front().ID(), 101);

    auto units = await<DataPage<ProductInfo>>([](auto done) { ProductInfo::listForCompany(1, std::string("86"), 103, done); });
    ASSERT_TRUE(units.success) << units.message.value_or("");
    ASSERT_FALSE(units.result->data()->empty());
    std::string imei(units.result->data()->front().serial()->asString());
    EXPECT_EQ(imei.size(), 15u);

    auto device = await<ProductInfo>([&](auto done) { ProductInfo::checkIMEI(imei, 1, done); });
    ASSERT_TRUE(device.success) << device.message.value_or("");
    EXPECT_EQ(device.result->name(), Value("瀚星 14 16GB+512GB 白色"));
    EXPECT_EQ(device.result->price(), 4599.0f);
    EXPECT_TRUE(awaitFlag([&](auto done) { ProductInfo::lockIMEI(imei, 1, done); }).success);
    auto lockedLookup = await<ProductInfo>([&](auto done) { ProductInfo::checkIMEI(imei, 1, done); });
    EXPECT_FALSE(lockedLookup.success);
    EXPECT_TRUE(awaitFlag([&](auto done) { ProductInfo::unlockIMEI(imei, 1, done); }).success);

    auto info = await<Value>([](auto done) { ProductInfo::getInfoOfProduct(104, 1, done); });
    ASSERT_TRUE(info.success);
    EXPECT_EQ(info.result->asDictionary().optString("Brand"), "晨曦");
}

TEST_F(Catalogue, PlansItemsPackagesAndBilling) {
    auto plans = await<std::vector<PlanInfo>>([](auto done) { PlanInfo::listWithCompany(1, done); });
    ASSERT_TRUE(plans.success) << plans.message.value_or("");
    EXPECT_EQ(plans.result->front().name(), "云桥5G畅享套餐");
    auto items = await<std::vector<PlanItem>>([](auto done) { PlanItem::listWithCompany(1, 1, "199", done); });
    ASSERT_EQ(items.result->size(), 1u);
    EXPECT_EQ(items.result->front().ID(), 12);
    auto description = await<Value>([](auto done) { PlanItem::getDescriptionOfItem(12, done); });
    EXPECT_NE(description.result->asString().find("千兆宽带"), std::string::npos);

    auto types = await<std::vector<CompoundType>>([](auto done) { CompoundType::listWithCallback(done); });
    EXPECT_EQ(types.result->size(), 3u);
    auto packages = await<std::vector<Compound>>([](auto done) { Compound::listWithPlanItemID(11, 1, done); });
    ASSERT_EQ(packages.result->size(), 2u);
    EXPECT_EQ(packages.result->at(1).price(), 59.9f);
    auto none = await<std::vector<Compound>>([](auto done) { Compound::listWithPlanItemID(31, 2, done); });
    EXPECT_TRUE(none.success && none.result->empty()) << "the server's null is no packages";
    auto detail = await<Value>([](auto done) { Compound::getDetailWithCompoundID(221, done); });
    EXPECT_EQ(detail.result->asDictionary().optDictionary("Detail").optString("Validity"), "30天");

    auto options = await<std::vector<BillingOption>>([](auto done) { BillingOption::listWithPlanItemID(31, 1, done); });
    ASSERT_EQ(options.result->size(), 1u);
    EXPECT_EQ(options.result->front().name(), "无合约");
}

TEST_F(Catalogue, SubscriberLookups) {
    auto crm = await<CRMInfo>([](auto done) { CRMInfo::checkWithBusinessNumber("13312345678", done); });
    ASSERT_TRUE(crm.success) << crm.message.value_or("");
    EXPECT_EQ(crm.result->customerName(), "王芳");
    auto unknown = await<CRMInfo>([](auto done) { CRMInfo::checkWithBusinessNumber("10000000000", done); });
    EXPECT_FALSE(unknown.success);
    EXPECT_EQ(unknown.message, "未查询到客户资料");

    auto members = await<std::vector<OfferMember>>([](auto done) { OfferMember::getWithCompanyID(1, "13312345678", done); });
    ASSERT_EQ(members.result->size(), 3u);
    EXPECT_EQ(members.result->at(0).uim(), Value("8986031234567890001"));
    EXPECT_EQ(members.result->at(2).productSpecName(), "宽带");

    auto resources = await<std::vector<TelecomResource>>([](auto done) { TelecomResource::list(20, 501, 90001, done); });
    ASSERT_EQ(resources.result->size(), 3u);
    EXPECT_TRUE(resources.result->at(0).isWan() && resources.result->at(0).available());
    EXPECT_TRUE(resources.result->at(2).isTel() && !resources.result->at(2).available());
}

} // namespace
} // namespace veltrane
