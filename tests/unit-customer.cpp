// Customer identity and location: what each operation sends, and how each
// record reads and writes its keys.
#include "veltrane/customer/AcceptingInfo.h"
#include "veltrane/customer/Address.h"
#include "veltrane/customer/Area.h"
#include "veltrane/customer/CertificateType.h"
#include "veltrane/customer/IDCardIndex.h"
#include "veltrane/customer/IDCardInfo.h"
#include "veltrane/customer/Person.h"
#include "veltrane/customer/ServiceTime.h"
#include "veltrane/foundation/Boxing.h"
#include "support/Harness.h"

namespace veltrane {
namespace {

using test::dict;
using test::ignore;
using test::kIgnoreFlag;
using test::RequestCase;

IDCardInfo cardNamed(std::string name) {
    IDCardInfo card;
    card.setName(std::move(name));
    return card;
}

IDCardInfo fullCard() {
    IDCardInfo card;
    card.setName("王芳");
    card.setGender("女");
    card.setNationality("汉");
    card.setBirthday("1990-01-01");
    card.setAddress("北京路2号 A座#3");
    card.setSerial("440104199001012345");
    card.setIssuingAuthority("越秀分局");
    card.setValidityPeriod("2018.03.15-2038.03.15");
    card.setPhoto(std::string("\xfb\xff", 2));
    card.setFrontCardImageUrl("/never/sent.jpg");
    return card;
}

const RequestCase kRequests[] = {
    {"card lines", [] { IDCardIndex::listWithCompanyID(12, ignore<DataPage<IDCardIndex>>()); }, HTTPMethod::GET, "getIdcardPages", "companyid=12:i32"},
    {"one card", [] { IDCardInfo::getCardInfoWithIndex(5, ignore<IDCardInfo>()); }, HTTPMethod::GET, "getIdcardInfo", "idcardid=5:i32"},
    {"card upload: values percent-encoded", [] { IDCardInfo::uploadCardInfo(cardNamed("张 三"), kIgnoreFlag); },
     HTTPMethod::POST, "postIdcard", R"(username="gz_tianhe_07" idcard="Name=%E5%BC%A0%20%E4%B8%89")"},
    {"card upload: & and = left as they are", [] { IDCardInfo::uploadCardInfo(cardNamed("a&b=c"), kIgnoreFlag); },
     HTTPMethod::POST, "postIdcard", R"(username="gz_tianhe_07" idcard="Name=a&b=c")"},
    {"card upload: every field, in order, photo in standard base64", [] { IDCardInfo::uploadCardInfo(fullCard(), kIgnoreFlag); },
     HTTPMethod::POST, "postIdcard",
     R"(username="gz_tianhe_07" idcard="Name=%E7%8E%8B%E8%8A%B3&Gender=%E5%A5%B3&Nation=%E6%B1%89&Birthday=1990-01-01&)"
     R"(Address=%E5%8C%97%E4%BA%AC%E8%B7%AF2%E5%8F%B7%20A%E5%BA%A7%233&Number=440104199001012345&)"
     R"(IssuingAuthority=%E8%B6%8A%E7%A7%80%E5%88%86%E5%B1%80&ValidityPeriod=2018.03.15-2038.03.15&Picture=+/8=")"},
    {"certificate types: no dictionary at all", [] { CertificateType::list(ignore<std::vector<CertificateType>>()); },
     HTTPMethod::GET, "getCertificateList", "none"},
    {"areas", [] { Area::list(20, ignore<std::vector<Area>>()); }, HTTPMethod::GET, "getTelecomArea", "pid=20:i32"},
    {"addresses, keywords percent-encoded", [] { Address::listWithAreaID(20, 2001, "体育 西路/1", ignore<std::vector<Address>>()); },
     HTTPMethod::GET, "getQueryAddress", R"(areaCode=20:i32 subAreaID=2001:i32 addressKey="%E4%BD%93%E8%82%B2%20%E8%A5%BF%E8%B7%AF/1")"},
    {"addresses, empty keywords sent", [] { Address::listWithAreaID(20, 0, "", ignore<std::vector<Address>>()); },
     HTTPMethod::GET, "getQueryAddress", R"(areaCode=20:i32 subAreaID=0:i32 addressKey="")"},
    {"addresses, no keywords", [] { Address::listWithAreaID(20, 0, std::nullopt, ignore<std::vector<Address>>()); },
     HTTPMethod::GET, "getQueryAddress", "areaCode=20:i32 subAreaID=0:i32"},
    {"installation slots", [] { ServiceTime::listWithAreaCode("2001", ignore<std::vector<ServiceTime>>()); },
     HTTPMethod::GET, "getInstallTime", R"(SubAreaCode="2001")"},
    {"installation slots, empty code: no dictionary", [] { ServiceTime::listWithAreaCode("", ignore<std::vector<ServiceTime>>()); },
     HTTPMethod::GET, "getInstallTime", "none"},
    {"accepting centre", [] { AcceptingInfo::getWithSN("AF20261120001", ignore<AcceptingInfo>()); },
     HTTPMethod::GET, "getAcceptUserInfo", R"(SN="AF20261120001")"},
};

class Customer : public test::GatewayTest {};

TEST_F(Customer, ParametersAsTheServerExpectsThem) { test::expectRequests(*transport, kRequests); }

TEST_F(Customer, TheCardUploadNeedsAUserAndAField) {
    test::Calls<bool> calls;
    FlagCallback record = [&](bool ok, std::optional<std::string> message, bool flag) { calls.calls.push_back({ok, std::move(message), flag}); };
    IDCardInfo::uploadCardInfo(cardNamed("x"), record);
    EXPECT_TRUE(transport->requests().empty()) << "nobody signed in: nothing sent";
    EXPECT_TRUE(calls.calls.empty()) << "and no completion";

    Account::signIn(User(7, 1, "gz_tianhe_07"));
    EXPECT_THROW(IDCardInfo::uploadCardInfo(IDCardInfo(), record), std::out_of_range);
    EXPECT_TRUE(transport->requests().empty());

    for (bool success : {true, false}) {
        reply("postIdcard", success, "M", R"({"ignored":1})");
        IDCardInfo::uploadCardInfo(cardNamed("x"), record);
        EXPECT_EQ(calls.calls.back().success, success);
        EXPECT_EQ(calls.calls.back().result, success) << "the flag, doubled";
        EXPECT_EQ(calls.calls.back().message, "M");
    }
}

TEST_F(Customer, APersonIsEmptyWithoutNameAddressNumberOrPhotoAddresses) {
    struct {
        const char* name;
        std::function<void(Person&)> set;
        bool empty;
    } cases[] = {
        {"new", [](Person&) {}, true},
        {"cached photo only", [](Person& p) { p.setIdCardPhotoFrontCachePath("/tmp/front.jpg"); }, true},
        {"back cache path only", [](Person& p) { p.setIdCardPhotoBackCachePath("/tmp/back.jpg"); }, true},
        {"one character of photo address", [](Person& p) { p.setIdCardPhotoBackUrl("x"); }, false},
        {"a name", [](Person& p) { p.setName("张"); }, false},
        {"unset properties count nothing", [](Person& p) { p.setName(std::nullopt); p.setAddress(Value()); }, true},
        {"a number as the number", [](Person& p) { p.setIdCardNumber(Value(7)); }, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Person p;
        c.set(p);
        EXPECT_EQ(p.isEmpty(), c.empty);
    }
    Person fresh;
    EXPECT_EQ(fresh.name(), Value("")) << "empty text, not unset";
}

TEST_F(Customer, ThePhotoIsStrictBase64) {
    struct {
        const char* dictionary;
        std::optional<std::string> photo;
    } cases[] = {
        {R"({})", std::nullopt},
        {R"({"Picture":"aGk="})", "hi"},
        {R"({"Picture":"aGk=\n"})", std::nullopt},
        {R"({"Picture":"a Gk="})", std::nullopt},
        {R"({"Picture":""})", ""},
        {R"({"Picture":null})", std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.dictionary);
        IDCardInfo card(dict(c.dictionary));
        EXPECT_EQ(card.photo(), c.photo);
    }
}

TEST_F(Customer, LoadersTakeTheCustomerKeys) {
    Dictionary info = dict(R"({"CustomerName":"王芳","Name":"旧名","Gender":"女","CustomerIdentity":4401,"Number":"old","Address":"old",)"
                           R"("CustomerPhotoFront":"/f.jpg","AddressID":90004,"AddressDesc":"天河","SiteID":501,"SiteName":"体育西"})");
    IDCardInfo card = IDCardInfo::loadFromActionOrderInfo(info);
    EXPECT_EQ(card.name(), "王芳");
    EXPECT_EQ(card.gender(), "女") << "other keys of the info are read as usual";
    EXPECT_EQ(card.serial(), "4401") << "the text of a number";
    EXPECT_EQ(card.address(), std::nullopt) << "no CustomerAddress removes Address";
    EXPECT_EQ(card.frontCardImageUrl(), "/f.jpg");
    EXPECT_EQ(info.optString("Name"), "旧名") << "the info is not changed";
    IDCardInfo read(dict(R"({"Birthday":"1990-01-01","IssuingAuthority":"越秀","ValidityPeriod":"2018-2038","CardFrontUrl":"/f","CardBackUrl":"/b"})"));
    EXPECT_EQ(*read.birthday() + *read.issuingAuthority() + *read.validityPeriod() + *read.frontCardImageUrl() + *read.backCardImageUrl(),
              "1990-01-01越秀2018-2038/f/b");
    EXPECT_EQ(writeJSON(fullCard().dictionaryWithIDCardInfo()),
              R"({"name":"王芳","gender":"女","nationality":"汉","address":"北京路2号 A座#3","idNumber":"440104199001012345",)"
              R"("issuingAuthority":"越秀分局"})");

    Address address = Address::loadFromActionOrderInfo(info);
    EXPECT_EQ(address.ID(), 90004);
    EXPECT_EQ(address.title(), "天河");
    EXPECT_EQ(address.siteID(), 501);
    EXPECT_EQ(address.siteName(), "体育西");
}

TEST_F(Customer, AddressesReadBothSpellings) {
    struct {
        const char* dictionary;
        int32_t ID;
        std::optional<std::string> title;
        int32_t siteID;
        std::optional<std::string> siteName;
    } cases[] = {
        {R"({"addressID":12,"AddressID":34})", 12, std::nullopt, 0, std::nullopt},
        {R"({"AddressID":34})", 34, std::nullopt, 0, std::nullopt},
        {R"({"addressID":"12"})", 0, std::nullopt, 0, std::nullopt},
        {R"({"addressID":null,"AddressID":34})", 0, std::nullopt, 0, std::nullopt},
        {R"({"AddressDesc":5})", 0, "5", 0, std::nullopt},
        {R"({"addressDesc":"a","AddressDesc":"b"})", 0, "a", 0, std::nullopt},
        {R"({"site":{"siteID":7,"siteName":"A"},"SiteID":9,"SiteName":"B"})", 0, std::nullopt, 7, "A"},
        {R"({"SiteID":9,"SiteName":"B"})", 0, std::nullopt, 9, "B"},
        {R"({"site":{},"SiteID":9})", 0, std::nullopt, 0, std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.dictionary);
        Address a(dict(c.dictionary));
        EXPECT_EQ(a.ID(), c.ID);
        EXPECT_EQ(a.title(), c.title);
        EXPECT_EQ(a.siteID(), c.siteID);
        EXPECT_EQ(a.siteName(), c.siteName);
    }
    Address written(dict(R"({"AddressDesc":"old"})"));
    written.setTitle(Value("new"));
    EXPECT_EQ(written.title(), "new");
    EXPECT_EQ(writeJSON(written.raw()), R"({"AddressDesc":"old","addressDesc":"new"})");
    EXPECT_THROW(Address(dict(R"({"site":"体育西"})")).siteID(), ValueError);
}

TEST(Dates, AsText) {
    struct {
        double seconds;
        const char* text;
    } cases[] = {
        {0, "1970-01-01T00:00:00Z"},
        {1500000000, "2017-07-14T02:40:00Z"},
        {1763700000.25, "2025-11-21T04:40:00.250Z"},
        {-1, "1969-12-31T23:59:59Z"},
        {1e300, "1.0000000000000001e+300 s since 1970"},
        {253402300799, "9999-12-31T23:59:59Z"},
        {253402300800, "253402300800 s since 1970"},
        {-62167219200, "0000-01-01T00:00:00Z"},
        {-62167219201, "-62167219201 s since 1970"},
    };
    for (const auto& c : cases) EXPECT_EQ(Date::dateWithTimeIntervalSince1970(c.seconds).iso8601(), c.text) << c.seconds;
    EXPECT_LT(Date(), Date::dateWithTimeIntervalSince1970(1));
}

} // namespace
} // namespace veltrane
