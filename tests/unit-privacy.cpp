// The masking rules of the log: patterns in free text, keys in dumped
// dictionaries, the shape of a line kept, and the opt-in.
#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/PersonalData.h"
#include "support/Harness.h"

namespace veltrane {
namespace {

TEST(Privacy, PatternsInFreeText) {
    const struct {
        const char* text;
        const char* masked;
    } cases[] = {
        {"id 440106199512126789 ok", "id 44**************89 ok"},
        {"id 44030519901111203X.", "id 44**************3X."},
        {"call 13912345678, or 139 1234 5678, or 139-1234-5678", "call 139****5678, or 139 **** 5678, or 139-****-5678"},
        {"desk 020-87654321 / 0755-1234567", "desk 020-****4321 / 075*-***4567"},
        // Not a person's: longer or shorter runs, other leading digits, inside words.
        {"IMEI 861234567890126, ICCID 8986031234567890001, price 6999, 12345678901", "IMEI 861234567890126, ICCID 8986031234567890001, price 6999, 12345678901"},
        {"SN20261118001 AF13912345678 13912345678X", "SN20261118001 AF13912345678 13912345678X"},
        {"order 123-4567890, room 0755 1234567", "order 123-4567890, room 0755 1234567"},
        {"", ""},
    };
    for (const auto& c : cases) EXPECT_EQ(maskPersonalText(c.text), c.masked) << c.text;

    std::string photo(120, 'Q');
    photo += "==";
    EXPECT_EQ(maskPersonalText("photo " + photo + " end"), "photo <122 chars #f88008e7> end");
    EXPECT_EQ(maskPersonalText(std::string(63, 'Q')), std::string(63, 'Q')) << "a short run is left";
    std::string digest = "8ed74dd5bdcfb6b5db56a79b93609e87b93bc8234fb6037e7ff070922fd5104b";
    EXPECT_EQ(maskPersonalText("sha256 " + digest), "sha256 " + digest) << "a digest is nobody's";
    registerSecret("s3cr3t-t0ken");
    EXPECT_EQ(maskPersonalText("Authorization: Bearer s3cr3t-t0ken (s3cr3t-t0ken)"), "Authorization: Bearer <secret> (<secret>)");
    for (int i = 1; i <= 32; ++i) registerSecret("secret-" + std::to_string(i));
    EXPECT_EQ(maskPersonalText("secret-1 secret-32"), "<secret> <secret>") << "the last 32 are remembered";
    registerSecret("secret-33");
    EXPECT_EQ(maskPersonalText("secret-1 secret-2"), "secret-1 <secret>") << "the 33rd pushes out the first";
    registerSecret("secr");
    EXPECT_EQ(maskPersonalText("secr secret-3"), "<secret> <secret>") << "the longest where two start, and a mark is not searched again";
}

TEST(Privacy, KeysInDumpedDictionaries) {
    Value order = parseJSON(R"({"CTUserName":"欧阳娜娜","CTCardNumber":"510104198805231234","Tel":"186-8888-9999","Phone":13800138000,
        "Address":"成都市锦江区红星路三段1号","Consignee":"","CTPictureHeads":"/uploads/idcard/9-front.jpg","Remarks":"加急 请致电 18688889999",
        "GoodsInfo":"[{\"GoodsID\":101,\"IMEI\":\"861234567890126\"}]","Amount":6999,
        "card":{"Name":"司马青衫","Number":"110101200001011234","Gender":"男"},"plan":{"Name":"5G畅享129元套餐"}})");
    EXPECT_EQ(describe(maskPersonalValue(order)),
              R"({"CTUserName": "***", "CTCardNumber": "51**************34", "Tel": "186-****-9999", "Phone": "138****8000", )"
              R"("Address": "***", "Consignee": "", "CTPictureHeads": "<27 chars #c3b734b1>", "Remarks": "加急 请致电 186****9999", )"
              R"("GoodsInfo": "[{\"GoodsID\":101,\"IMEI\":\"861234567890126\"}]", "Amount": 6999, )"
              R"("card": {"Name": "***", "Number": "11**************34", "Gender": "男"}, "plan": {"Name": "5G畅享129元套餐"}})")
        << "a card's name is its holder's; a plan's is not";
}

// Whatever a person's field holds, under any of the keys the records use for one.
TEST(Privacy, EveryPersonalKeyIsMasked) {
    const char* keys[] = {"CTCardNumber", "AgentCTCardNumber", "Number", "idNumber", "IdentityNumber", "CustomerIdentity", "idCardNumber",
                          "Phone", "phone", "Tel", "contactTel", "AccountNumber", "accNbr", "subProdAccNbr", "AcctNbr", "number",
                          "CTUserName", "AgentCTUserName", "Consignee", "contactName", "CustomerName", "customerName", "UserName",
                          "Birthday", "Address", "address", "CTAddress", "AgentCTAddress", "CustomerAddress", "addressDesc",
                          "AddressDesc", "contactAddress", "Picture", "photo", "idcard", "CTPictureHeads", "CTPictureTails",
                          "AgentCTPictureHeads", "AgentCTPictureTails", "CustomerPhotoFront", "CustomerPhotoBack", "CardFrontUrl",
                          "CardBackUrl"};
    for (const char* key : keys) {
        std::string masked = describe(maskPersonalValue(Dictionary{{key, "0201234"}}));
        EXPECT_EQ(masked.find("0201234"), std::string::npos) << masked;
    }
    EXPECT_EQ(describe(maskPersonalValue(Dictionary{{"Remark", "a"}})), R"({"Remark": "a"})");
}

class PrivacyLog : public test::GatewayTest {};

TEST_F(PrivacyLog, MaskedUnlessTheApplicationOptsIn) {
    Value card = parseJSON(R"({"Name":"欧阳娜娜","Number":"510104198805231234"})");
    log("call 13912345678");
    logValue("card ", card);
    EXPECT_EQ(logLines, (std::vector<std::string>{"call 139****5678", R"(card {"Name": "***", "Number": "51**************34"})"}));
    logInClear();
    log("call 13912345678");
    logValue("card ", card);
    EXPECT_EQ(logLines, (std::vector<std::string>{"call 13912345678", "card " + describe(card)}));
    logPersonalDataInClear(false);
    logLines.clear();
    logPersonalDataInClear(true);
    logPersonalDataInClear(true);
    EXPECT_EQ(logLines, (std::vector<std::string>{"personal data is shown in clear in this log: for development builds only"})) << "said once";
}

} // namespace
} // namespace veltrane
