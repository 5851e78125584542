// The catalogue: what every operation sends (method, API name, the parameter
// dictionary's keys in order with each number's kind); what the records read,
// what they send back in raw(), their loaders, equality and writes; and how
// their lists read replies.
#include <unordered_set>

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

using test::dict;
using test::ignore;
using test::kIgnoreFlag;
using test::RequestCase;

// ---- What each operation sends ----------------------------------------------------

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

// ---- Phone numbers --------------------------------------------------------------

TEST(Numbers, RawSendsThePrepaidAmountAsThePrice) {
    Dictionary given = dict(R"({"Phone":"13912345678","Prestore":"50","Price":99,"Rank":"2","Extra":true})");
    NumberInfo number(given);
    EXPECT_EQ(number.rank(), 2);
    EXPECT_EQ(number.prefund(), 50.0f);
    Dictionary raw = number.raw();
    EXPECT_EQ(test::typedParams(raw), R"(Phone="13912345678" Prestore=50:f32 Price=50:f32 Rank="2" Extra=true AccountNumber="13912345678")");
    EXPECT_TRUE(raw.isReadOnly());
    EXPECT_EQ(given.optLong("Price"), 99) << "the kept dictionary is not changed";

    number.setUIM(Value("8986"));
    number.setPhoneNumber(std::nullopt);
    number.setRank(9);
    raw = number.raw();
    EXPECT_FALSE(raw.contains("Phone"));
    EXPECT_FALSE(raw.contains("AccountNumber"));
    EXPECT_EQ(raw.optString("UimCode"), "8986");
    EXPECT_EQ(raw.optString("Rank"), "2") << "rank is not written back";
}

TEST(Numbers, SharesTheDictionaryItWasGiven) {
    Dictionary given = dict(R"({"Phone":"1"})");
    NumberInfo number(given);
    given.set("Later", 1);
    EXPECT_TRUE(number.raw().contains("Later"));
    EXPECT_THROW(NumberInfo(dict(R"({"Rank":null})")), ValueError);
}

TEST(Numbers, LoadedFromAnActionOrderInfo) {
    NumberInfo number = NumberInfo::loadFromActionOrderInfo(dict(R"({"AccountNumber":"13312345678","Price":30,"UimCode":898603,"Phone":"old"})"));
    EXPECT_EQ(number.phoneNumber(), Value("13312345678"));
    EXPECT_EQ(number.prefund(), 30.0f);
    EXPECT_EQ(number.UIM(), Value("898603")) << "the UIM is read as text";
    EXPECT_FALSE(NumberInfo::loadFromActionOrderInfo(dict(R"({"Phone":"old"})")).phoneNumber()) << "a missing source removes the key";
}

TEST(Numbers, EqualByPhoneNumberText) {
    NumberInfo a(dict(R"({"Phone":"139","Rank":1})")), b(dict(R"({"Phone":"139","Rank":2})")), c(dict(R"({"Phone":"138"})"));
    EXPECT_TRUE(a.isEqual(b));
    EXPECT_FALSE(a.isEqual(c));
    EXPECT_FALSE(NumberInfo().isEqual(NumberInfo())) << "absent numbers are never equal";
}

struct FormatCase {
    const char* text;
    const char* formatted;
};

const FormatCase kFormats[] = {
    {"13912345678", "139 1234 5678"}, {"1391234", "139 1234 "}, {"139123", "139123"}, {"", ""},
    {"1391234567890", "139 1234 567890"}, {"一二三四五六七八", "一二三 四五六七 八"},
};

TEST(Numbers, FormattedAsPhoneNumbers) {
    for (const FormatCase& c : kFormats) EXPECT_EQ(stringFormattedAsPhoneNumber(c.text), c.formatted) << c.text;
    EXPECT_EQ(stringForNumberType(0), "全部网络");
    EXPECT_EQ(stringForNumberType(1), "省内CRM(3G)");
    EXPECT_EQ(stringForNumberType(2), "集团CRM(4G)");
    EXPECT_EQ(stringForNumberType(3), std::nullopt);
}

// ---- Devices -----------------------------------------------------------------------

struct NameCase {
    const char* dictionary;
    std::optional<Value> name;
};

const NameCase kNames[] = {
    {R"({"GoodsName":"G"})", Value("G")},
    {R"({"Name":"N","Title":"T"})", Value("N")},
    {R"({"Title":"T"})", Value("T")},
    {R"({"Name":null,"Title":"T"})", Value()},
    {"{}", std::nullopt},
};

TEST(Devices, NameFromTheFirstKeyPresent) {
    for (const NameCase& c : kNames) {
        SCOPED_TRACE(c.dictionary);
        ProductInfo device(dict(c.dictionary));
        EXPECT_EQ(device.name(), c.name);
        EXPECT_EQ(device.raw().contains("Name"), c.name.has_value());
    }
}

TEST(Devices, RawSendsTheDealPriceAsWholeNumbers) {
    ProductInfo device(dict(R"({"ID":"7","Price":"1999.5","IMEI":"861234567890126","Brand":"青岚"})"));
    EXPECT_EQ(device.price(), 1999.5f);
    EXPECT_EQ(device.dealPrice(), 1999.5f);
    EXPECT_EQ(test::typedParams(device.raw()),
              R"(ID=7:i32 Price=1999:i64 IMEI="861234567890126" Brand="青岚" dealPrice=1999:i64)");
    device.setDealPrice(-49.9f);
    EXPECT_EQ(device.raw().optLong("Price"), -49);
    EXPECT_EQ(test::typedParams(ProductInfo().raw()), "ID=0:i32 dealPrice=0:i64 Price=0:i64") << "nothing kept: an empty dictionary";
}

// ---- Plans and packages ----------------------------------------------------------------

TEST(Plans, CopyingRecordsKeepTheirOwnDictionary) {
    Dictionary given = dict(R"({"ID":1,"Name":"A"})");
    PlanItem item(given);
    given.set("Name", "changed by the caller");
    item.setName("changed by the record");
    EXPECT_EQ(item.name(), "changed by the record");
    EXPECT_EQ(given.optString("Name"), "changed by the caller");
    item.setRaw(given);
    given.set("ID", 2);
    EXPECT_EQ(item.ID(), 1);
}

TEST(Plans, PricesAreWrittenDifferently) {
    Compound package(dict(R"({"PackageID":201,"Price":"20.5"})"));
    EXPECT_EQ(package.price(), 20.5f);
    package.setPrice(29.99f);
    EXPECT_EQ(package.price(), 29.0f);
    BillingOption option(dict(R"({"AgreementID":301,"AgreementName":"存费送费"})"));
    option.setPrice(29.99f);
    EXPECT_EQ(option.price(), 29.99f);
    option.setName(std::nullopt);
    EXPECT_FALSE(option.raw().contains("AgreementName"));
    EXPECT_FALSE(option.name());
}

TEST(Plans, PackagesAreIdentifiedByID) {
    Compound a(dict(R"({"PackageID":201,"PackageName":"A"})")), b(dict(R"({"PackageID":201,"PackageName":"B"})"));
    EXPECT_TRUE(a.isEqual(b));
    EXPECT_EQ(a.hash(), b.hash());
    std::unordered_set<Compound> chosen{a, b, Compound(dict(R"({"PackageID":-5})"))};
    EXPECT_EQ(chosen.size(), 2u);
    EXPECT_EQ(Compound(dict(R"({"PackageID":-5})")).hash(), -5);

    Compound copy = a.copy();
    copy.setName("copy");
    EXPECT_EQ(a.name(), "A") << "a copy has its own dictionary";
    Compound sameRecord = a;
    sameRecord.setName("shared");
    EXPECT_EQ(a.name(), "shared") << "copying the object copies the handle";

    CompoundType type(dict(R"({"ID":201})"));
    EXPECT_TRUE(type.isEqual(type.copy()));
    EXPECT_EQ(std::unordered_set<CompoundType>({type, type.copy()}).size(), 1u);
}

// ---- Subscriber lookup -------------------------------------------------------------------

struct ResourceCase {
    const char* dictionary;
    bool tel, wan, available;
};

const ResourceCase kResources[] = {
    {R"({"type":2,"code":1})", true, true, true}, {R"({"type":3})", false, false, false}, {"{}", true, false, false},
    {R"({"type":"1","code":"0"})", false, true, false}, {R"({"type":0,"code":-1})", true, false, true},
};

TEST(Subscribers, ResourceFlags) {
    for (const ResourceCase& c : kResources) {
        SCOPED_TRACE(c.dictionary);
        TelecomResource r(dict(c.dictionary));
        EXPECT_EQ(r.isTel(), c.tel);
        EXPECT_EQ(r.isWan(), c.wan);
        EXPECT_EQ(r.available(), c.available);
    }
    for (const char* bad : {R"({"type":null})", R"({"code":[]})"}) EXPECT_THROW(TelecomResource(dict(bad)), ValueError) << bad;
}

TEST(Subscribers, OfferMemberEqualityIsOneSided) {
    OfferMember a(dict(R"({"accNbr":"1"})")), b(dict(R"({"accNbr":"1","custId":"9"})"));
    EXPECT_TRUE(a.isEqual(b));
    EXPECT_FALSE(b.isEqual(a));
    EXPECT_TRUE(OfferMember().isEqual(b)) << "an empty member equals every member";
    EXPECT_FALSE(OfferMember(dict(R"({"accNbr":1})")).isEqual(a)) << "values compare by JSON equality";
}

TEST(Subscribers, OfferMemberWritesInPairs) {
    OfferMember member;
    EXPECT_FALSE(member.isLoadedFromDict());
    member.setAccountNumber("13312345678");
    member.setUim(Value(898603));
    EXPECT_EQ(writeJSON(member.raw()), R"({"accNbr":"13312345678","subProdAccNbr":"13312345678","UIM":898603,"UimCode":898603})");
    OfferMember loaded(dict(R"({"UimCode":"U2","accNbr":"5"})"));
    EXPECT_TRUE(loaded.isLoadedFromDict());
    EXPECT_EQ(loaded.uim(), Value("U2"));
    EXPECT_EQ(loaded.raw().optString("subProdAccNbr"), "5");
    loaded.setUim(Value("U1"));
    EXPECT_EQ(loaded.uim(), Value("U1"));

    Dictionary replaced = dict("{}");
    loaded.setRaw(replaced);
    loaded.setAreaCode("020");
    EXPECT_EQ(replaced.optString("areaCode"), "020") << "setRaw keeps the very dictionary";
}

struct MemberLoadCase {
    const char* info;
    const char* specID;
    const char* specName;
};

const MemberLoadCase kMemberLoads[] = {
    {R"({"ID":7001,"AccountNumber":"133","AreaCode":"020","NumberTypeID":0,"NumberTypeName":"移动电话"})", "0", "手动输入"},
    {R"({"ID":7001,"AccountNumber":"133","AreaCode":"020"})", "0", "手动输入"},
    {R"({"ID":7001,"AccountNumber":"133","AreaCode":"020","NumberTypeID":5,"NumberTypeName":"A"})", "5", "A"},
};

TEST(Subscribers, OfferMemberFromAnActionOrder) {
    for (const MemberLoadCase& c : kMemberLoads) {
        SCOPED_TRACE(c.info);
        OfferMember member = OfferMember::loadFromActionFormOrder(dict(c.info));
        EXPECT_EQ(member.productSpecID(), c.specID);
        EXPECT_EQ(member.productSpecName(), c.specName);
        EXPECT_EQ(member.accountNumber(), "133");
        EXPECT_EQ(member.raw().optString("subProdAccNbr"), "133");
        EXPECT_EQ(member.areaCode(), "020");
        EXPECT_EQ(member.productID(), "7001");
        EXPECT_TRUE(member.isLoadedFromDict());
    }
}

TEST(Subscribers, CRMInfoWritesThroughOrRefuses) {
    Dictionary given = dict(R"({"CustomerName":"王芳","NumberTypeID":5})");
    CRMInfo crm(given);
    EXPECT_EQ(crm.numberTypeID(), "5");
    crm.setAreaCode("020");
    crm.setCustomerName(std::nullopt);
    EXPECT_EQ(writeJSON(given), R"({"NumberTypeID":5,"AreaCode":"020"})");
    CRMInfo fresh;
    EXPECT_FALSE(fresh.customerName());
    EXPECT_THROW(fresh.setCustomerName("x"), ValueError);
}

// ---- How the catalogue's lists read replies -------------------------------------------------

class CatalogueReplies : public test::GatewayTest {};

TEST_F(CatalogueReplies, EachListReadsItsReplyItsOwnWay) {
    reply("getPlanList", true, "M", R"([{"ID":1},"bad"])");
    reply("getPlanProjectPages", true, "M", R"({"ID":1})");
    reply("listCompounds", true, "M", "null");
    reply("listCompoundTypes", true, "M", R"([{"ID":1},"bad",{"ID":2}])");
    reply("getBillingOptions", true, "M", R"([{"AgreementID":1}])");
    reply("getOfferMembers", true, "M", R"({"a":1})");
    test::Calls<std::vector<PlanInfo>> plans;
    test::Calls<std::vector<PlanItem>> items;
    test::Calls<std::vector<Compound>> packages;
    test::Calls<std::vector<CompoundType>> types;
    test::Calls<std::vector<BillingOption>> options;
    test::Calls<std::vector<OfferMember>> members;
    PlanInfo::listWithCompany(1, plans.callback());
    PlanItem::listWithCompany(1, 1, std::nullopt, items.callback());
    Compound::listWithPlanItemID(1, 1, packages.callback());
    CompoundType::listWithCallback(types.callback());
    BillingOption::listWithPlanItemID(1, 1, options.callback());
    OfferMember::getWithCompanyID(1, std::nullopt, members.callback());

    EXPECT_FALSE(plans.only().success) << "one bad plan fails the list";
    EXPECT_EQ(plans.only().message, "getPlanList: [1]: a string is not a dictionary");
    EXPECT_TRUE(items.only().success);
    EXPECT_TRUE(items.only().result->empty()) << "a dictionary is an empty list of items";
    EXPECT_TRUE(packages.only().result->empty()) << "null is an empty list of packages";
    EXPECT_EQ(types.only().result->size(), 2u) << "bad types are dropped";
    EXPECT_EQ(options.only().result->at(0).ID(), 1);
    EXPECT_TRUE(members.only().success);
    EXPECT_TRUE(members.only().result->empty()) << "a dictionary's keys are no members";
}

} // namespace
} // namespace veltrane
