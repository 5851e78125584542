// What every catalogue operation sends: method, API name, and the parameter
// dictionary's keys in order, with each number's kind.
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
#include "support/Harness.h"

namespace veltrane {
namespace {

using test::ignore;
using test::kIgnoreFlag;
using test::RequestCase;

using Numbers = DataPage<NumberInfo>;
using Products = DataPage<ProductInfo>;

const RequestCase kRequests[] = {
    {"numbers, network 0: no PlanType", [] { NumberInfo::listWithCompany(12, 0, 0, 3, std::nullopt, 1, ignore<Numbers>()); },
     HTTPMethod::GET, "getPhonePages", "companyid=12:i32 rank=3:i32 NetType=0:u64 p=1:i32"},
    {"numbers, network 1 fills PlanType, device fills NetType", [] { NumberInfo::listWithCompany(12, 1, 2, 0, "888", 2, ignore<Numbers>()); },
     HTTPMethod::GET, "getPhonePages", R"(companyid=12:i32 rank=0:i32 PlanType=1:i32 NetType=2:u64 p=2:i32 keyword="888")"},
    {"numbers, network 5: no PlanType; empty keywords sent", [] { NumberInfo::listWithCompany(1, 5, 0, 0, "", 1, ignore<Numbers>()); },
     HTTPMethod::GET, "getPhonePages", R"(companyid=1:i32 rank=0:i32 NetType=0:u64 p=1:i32 keyword="")"},
    {"numbers, unescaped keywords", [] { NumberInfo::listWithCompany(1, 2, 1, 0, "1 3&8", 1, ignore<Numbers>()); },
     HTTPMethod::GET, "getPhonePages", R"(companyid=1:i32 rank=0:i32 PlanType=2:i32 NetType=1:u64 p=1:i32 keyword="1 3&8")"},
    {"lock number", [] { NumberInfo::lockPhoneNumber("13912345678", 12, kIgnoreFlag); },
     HTTPMethod::POST, "postLockPhone", R"(companyid=12:i32 phone="13912345678")"},
    {"unlock number", [] { NumberInfo::unlockPhoneNumber("13912345678", 12, kIgnoreFlag); },
     HTTPMethod::POST, "postUnLockPhone", R"(companyid=12:i32 phone="13912345678")"},
    {"goods page, keywords escaped", [] { ProductInfo::listForCompany(1, 3, "青岚 Q60", ignore<Products>()); },
     HTTPMethod::GET, "getGoodsPages", R"(p=3:i32 companyid=1:i32 keyword="%E9%9D%92%E5%B2%9A%20Q60")"},
    {"goods page, empty keywords left out", [] { ProductInfo::listForCompany(1, 1, "", ignore<Products>()); },
     HTTPMethod::GET, "getGoodsPages", "p=1:i32 companyid=1:i32"},
    {"goods by IMEI, any line", [] { ProductInfo::listForCompany(1, std::string("8612"), ignore<Products>()); },
     HTTPMethod::GET, "getGoodsPagesWithIMEI", R"(companyid=1:i32 imei="8612" goodsid=-1:i32)"},
    {"goods by IMEI, one line", [] { ProductInfo::listForCompany(1, std::string("8612"), 101, ignore<Products>()); },
     HTTPMethod::GET, "getGoodsPagesWithIMEI", R"(companyid=1:i32 imei="8612" goodsid=101:i32)"},
    {"check IMEI", [] { ProductInfo::checkIMEI("861234567890126", 1, ignore<ProductInfo>()); },
     HTTPMethod::GET, "getGoodsByIMEI", R"(companyid=1:i32 imei="861234567890126")"},
    {"lock IMEI", [] { ProductInfo::lockIMEI("861234567890126", 1, kIgnoreFlag); },
     HTTPMethod::POST, "postLockImei", R"(companyid=1:i32 imei="861234567890126")"},
    {"unlock IMEI", [] { ProductInfo::unlockIMEI("861234567890126", 1, kIgnoreFlag); },
     HTTPMethod::POST, "postUnLockImei", R"(companyid=1:i32 imei="861234567890126")"},
    {"product info", [] { ProductInfo::getInfoOfProduct(101, 1, ignore<Value>()); },
     HTTPMethod::GET, "getInfo", "goodsid=101:i32 companyid=1:i32"},
    {"plans", [] { PlanInfo::listWithCompany(1, ignore<std::vector<PlanInfo>>()); }, HTTPMethod::GET, "getPlanList", "companyid=1:i32"},
    {"plan items, no keywords", [] { PlanItem::listWithCompany(1, 2, std::nullopt, ignore<std::vector<PlanItem>>()); },
     HTTPMethod::GET, "getPlanProjectPages", "companyid=1:i32 planid=2:i32"},
    {"plan items, empty keywords", [] { PlanItem::listWithCompany(1, 2, "", ignore<std::vector<PlanItem>>()); },
     HTTPMethod::GET, "getPlanProjectPages", "companyid=1:i32 planid=2:i32"},
    {"plan items, keywords as they are", [] { PlanItem::listWithCompany(1, 2, "畅享 5G", ignore<std::vector<PlanItem>>()); },
     HTTPMethod::GET, "getPlanProjectPages", R"(companyid=1:i32 planid=2:i32 keyword="畅享 5G")"},
    {"plan item description", [] { PlanItem::getDescriptionOfItem(11, ignore<Value>()); }, HTTPMethod::GET, "getPlanProjectInfo", "id=11:i32"},
    {"package types: no dictionary at all", [] { CompoundType::listWithCallback(ignore<std::vector<CompoundType>>()); },
     HTTPMethod::GET, "listCompoundTypes", "none"},
    {"packages", [] { Compound::listWithPlanItemID(11, 2, ignore<std::vector<Compound>>()); },
     HTTPMethod::GET, "listCompounds", "planItemID=11:i32 typeID=2:i32"},
    {"package detail", [] { Compound::getDetailWithCompoundID(201, ignore<Value>()); }, HTTPMethod::GET, "getCompoundDetail", "ID=201:i32"},
    {"billing options", [] { BillingOption::listWithPlanItemID(11, 1, ignore<std::vector<BillingOption>>()); },
     HTTPMethod::GET, "getBillingOptions", "planItemID=11:i32 companyID=1:i32"},
    {"CRM check, signed in", [] {
         Account::signIn(User(1L << 40, 1, "a"));
         CRMInfo::checkWithBusinessNumber("13312345678", ignore<CRMInfo>());
     },
     HTTPMethod::GET, "checkCRMInfo", R"(number="13312345678" userID=1099511627776:i64)"},
    {"CRM check, nobody signed in", [] {
         Account::signOut();
         CRMInfo::checkWithBusinessNumber("1", ignore<CRMInfo>());
     },
     HTTPMethod::GET, "checkCRMInfo", R"(number="1" userID=0:i64)"},
    {"offer members", [] { OfferMember::getWithCompanyID(1, "13312345678", ignore<std::vector<OfferMember>>()); },
     HTTPMethod::GET, "getOfferMembers", R"(CompanyID=1:i32 AcctNbr="13312345678")"},
    {"offer members, null account", [] { OfferMember::getWithCompanyID(1, std::nullopt, ignore<std::vector<OfferMember>>()); },
     HTTPMethod::GET, "getOfferMembers", "CompanyID=1:i32"},
    {"resources: the third argument is the address", [] { TelecomResource::list(20, 501, 90001, ignore<std::vector<TelecomResource>>()); },
     HTTPMethod::GET, "getResourceConfirm", "areaCode=20:i32 siteID=501:i32 addressID=90001:i32"},
};

class CatalogueRequests : public test::GatewayTest {};

TEST_F(CatalogueRequests, ParametersAsTheServerExpectsThem) { test::expectRequests(*transport, kRequests); }

TEST_F(CatalogueRequests, NoIMEIIsRefusedBeforeAnyRequest) {
    for (const std::optional<std::string>& imei : {std::optional<std::string>(), std::optional<std::string>("")}) {
        test::Calls<Products> calls;
        ProductInfo::listForCompany(1, imei, 101, calls.callback());
        ASSERT_EQ(calls.calls.size(), 1u) << "called before returning";
        EXPECT_FALSE(calls.only().success);
        EXPECT_EQ(calls.only().message, "no IMEI");
        EXPECT_FALSE(calls.only().result);
    }
    EXPECT_TRUE(transport->requests().empty());
}

} // namespace
} // namespace veltrane
