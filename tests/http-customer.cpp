// Customer records against the sandbox: an identity card uploaded, listed and
// read back with the same fields; one call of each other family.
#include "veltrane/customer/AcceptingInfo.h"
#include "veltrane/customer/Address.h"
#include "veltrane/customer/Area.h"
#include "veltrane/customer/CertificateType.h"
#include "veltrane/customer/IDCardIndex.h"
#include "veltrane/customer/IDCardInfo.h"
#include "veltrane/customer/ServiceTime.h"
#include "support/SandboxTest.h"

namespace veltrane {
namespace {

class CustomerOverHTTP : public test::SandboxTest {};

TEST_F(CustomerOverHTTP, AnIdentityCardMakesTheRoundTrip) {
    IDCardInfo card;
    card.setName("欧阳 娜娜");
    card.setGender("女");
    card.setNationality("汉");
    card.setBirthday("2000-06-15");
    card.setAddress("广州市天河区 A&B座=3%/#");
    card.setSerial("440106200006150028");
    card.setIssuingAuthority("广州市公安局");
    card.setValidityPeriod("2020.01.01-2030.01.01");
    std::string photo;
    for (int i = 0; i < 3000; ++i) photo += static_cast<char>(i * 7);
    card.setPhoto(photo);
    auto uploaded = awaitFlag([&](auto done) { IDCardInfo::uploadCardInfo(card, done); });
    ASSERT_TRUE(uploaded.success) << uploaded.message.value_or("");

    auto page = await<DataPage<IDCardIndex>>([](auto done) { IDCardIndex::listWithCompanyID(1, done); });
    ASSERT_TRUE(page.success) << page.message.value_or("");
    std::optional<IDCardIndex> line;
    for (const IDCardIndex& i : *page.result->data())
        if (i.serial() == card.serial()) line = i;
    ASSERT_TRUE(line);
    EXPECT_EQ(line->name(), card.name());

    auto back = await<IDCardInfo>([&](auto done) { IDCardInfo::getCardInfoWithIndex(line->ID(), done); });
    ASSERT_TRUE(back.success) << back.message.value_or("");
    const IDCardInfo& read = *back.result;
    EXPECT_EQ(writeJSON(read.dictionaryWithIDCardInfo()), writeJSON(card.dictionaryWithIDCardInfo()));
    EXPECT_EQ(read.birthday(), card.birthday());
    EXPECT_EQ(read.validityPeriod(), card.validityPeriod());
    EXPECT_EQ(read.photo(), photo);
}

TEST_F(CustomerOverHTTP, AMalformedCardTextIsRefusedByName) {
    struct {
        const char* idcard;
        const char* message;
    } cases[] = {
        {"Bogus=1&Name=x", "身份证信息格式错误: 第一段不是已知字段: Bogus=1"},
        {"Name=a&Name=b", "身份证信息格式错误: 字段重复: Name"},
        {"Name=%E5%B", "身份证信息格式错误: Name 的百分号编码不完整"},
        {"Name=%E5%BC", "身份证信息格式错误: Name 不是有效的 UTF-8 文本"},
        {"Name=x&Picture=not base64!", "身份证信息格式错误: Picture 不是 base64"},
        {"Gender=%E5%A5%B3", "身份证信息格式错误: 缺少 Name 或 Number"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.idcard);
        auto reply = request(HTTPMethod::POST, "postIdcard", Dictionary{{"username", "gz_tianhe_07"}, {"idcard", c.idcard}});
        EXPECT_FALSE(reply.success);
        EXPECT_EQ(reply.message, c.message);
    }
}

TEST_F(CustomerOverHTTP, EachFamilyOfCalls) {
    auto types = await<std::vector<CertificateType>>([](auto done) { CertificateType::list(done); });
    ASSERT_TRUE(types.success);
    EXPECT_EQ(types.result->front().Name(), "居民身份证");

    auto cities = await<std::vector<Area>>([](auto done) { Area::list(0, done); });
    ASSERT_TRUE(cities.success);
    EXPECT_EQ(cities.result->front().title(), Value("广州市"));
    auto districts = await<std::vector<Area>>([&](auto done) { Area::list(cities.result->front().ID(), done); });
    ASSERT_EQ(districts.result->size(), 3u);

    auto addresses = await<std::vector<Address>>([](auto done) { Address::listWithAreaID(20, 2001, "体育西路", done); });
    ASSERT_TRUE(addresses.success);
    ASSERT_EQ(addresses.result->size(), 2u) << "one of each spelling";
    for (const Address& a : *addresses.result) {
        EXPECT_NE(a.ID(), 0);
        EXPECT_NE(a.title()->find("体育西路"), std::string::npos);
        EXPECT_EQ(a.siteID(), 501);
        EXPECT_EQ(a.siteName(), "体育西路局站");
    }

    auto slots = await<std::vector<ServiceTime>>([](auto done) { ServiceTime::listWithAreaCode("2001", done); });
    ASSERT_EQ(slots.result->size(), 2u);
    EXPECT_EQ(writeJSON(*slots.result->front().time()), R"(["09:00-12:00","14:00-18:00"])");

    auto accepted = await<AcceptingInfo>([](auto done) { AcceptingInfo::getWithSN("AF20261120001", done); });
    ASSERT_TRUE(accepted.success && accepted.result);
    EXPECT_EQ(accepted.result->acceptingCenterName(), "天河受理中心");
    auto notYet = await<AcceptingInfo>([](auto done) { AcceptingInfo::getWithSN("AF20261121001", done); });
    EXPECT_TRUE(notYet.success);
    EXPECT_FALSE(notYet.result);
    auto unknown = await<AcceptingInfo>([](auto done) { AcceptingInfo::getWithSN("NOSUCHSN", done); });
    EXPECT_FALSE(unknown.success);
    EXPECT_EQ(unknown.message, "订单不存在");
}

} // namespace
} // namespace veltrane
