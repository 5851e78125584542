// Receipts, agreements, printers and the submit result: what each operation
// sends, how its reply is read, and each record's keys.
#include "veltrane/documents/Agreement.h"
#include "veltrane/documents/Printer.h"
#include "veltrane/documents/Receipt.h"
#include "veltrane/documents/ReceiptSet.h"
#include "veltrane/foundation/Boxing.h"
#include "veltrane/orders/ActionFormOrderSubmitResult.h"
#include "support/Harness.h"

namespace veltrane {
namespace {

using test::dict;
using test::ignore;
using test::kIgnoreFlag;
using test::RequestCase;
using Sheets = std::vector<std::string>;

const RequestCase kRequests[] = {
    {"agreements: CompanyId from the signed-in user", [] { Agreement::listWithSN("SN1", ignore<std::vector<Agreement>>()); },
     HTTPMethod::GET, "getAgreementList", R"(CompanyId=1:i64 SN="SN1")"},
    {"sheets: each identifier then a comma", [] { Agreement::createSheetWithSN("SN1", {Value(3), Value("7")}, ignore<Sheets>()); },
     HTTPMethod::POST, "createAgreementSheet", R"(SN="SN1" ID="3,7,")"},
    {"sheets: none", [] { Agreement::createSheetWithSN("SN1", {}, ignore<Sheets>()); }, HTTPMethod::POST, "createAgreementSheet", R"(SN="SN1" ID="")"},
    {"printers", [] { Printer::listPrinterOfCompany(3, ignore<std::vector<Printer>>()); }, HTTPMethod::GET, "getPrintServer", "companyid=3:i32"},
    {"print request: the order as a double", [] { Printer::sendPrintRequestOfOrderID(9007199254740993L, 2, 811, kIgnoreFlag); },
     HTTPMethod::POST, "addprintlist", "id=9007199254740992:f64 serverid=2:i32 receiptid=811:i32"},
    {"agreements, nobody signed in: CompanyId 0", [] {
         Account::signOut();
         Agreement::listWithSN("SN1", ignore<std::vector<Agreement>>());
     },
     HTTPMethod::GET, "getAgreementList", R"(CompanyId=0:i64 SN="SN1")"},
};

class Documents : public test::GatewayTest {};

TEST_F(Documents, ParametersAsTheServerExpectsThem) { test::expectRequests(*transport, kRequests); }

std::string show(const test::Calls<Sheets>::Call& call) {
    std::string out = std::string(call.success ? "T" : "F") + "|" + call.message.value_or("-") + "|";
    if (call.result)
        for (const std::string& name : *call.result) out += name + ";";
    return out;
}

TEST_F(Documents, SheetRepliesAreATextOfJSONOrAnArrayOfTexts) {
    struct {
        bool success;
        const char* data;  // nullptr for none
        const char* expected;
    } cases[] = {
        {true, R"("[\"a.pdf\",\"b.pdf\"]")", "T|M|a.pdf;b.pdf;"},
        {true, R"("not json")", "F|malformed JSON: "},
        {true, R"("[1]")", "F|服务器数据格式错误|"},
        {true, R"(["a",null])", "F|服务器数据格式错误|"},
        {true, R"("\"one.pdf\"")", "F|服务器数据格式错误|"},
        {true, nullptr, "F|服务器数据格式错误|"},
        {false, R"(["a.pdf"])", "F|M|"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.data ? c.data : "none");
        reply("createAgreementSheet", c.success, "M", c.data ? c.data : "");
        test::Calls<Sheets> calls;
        Agreement::createSheetWithSN("SN", {Value(1)}, calls.callback());
        EXPECT_EQ(show(calls.only()).rfind(c.expected, 0), 0u) << show(calls.only());
    }
}

TEST_F(Documents, PrintersNeedAnArray) {
    struct {
        const char* data;
        bool success;
        std::optional<std::string> message;
        size_t printers;
    } cases[] = {
        {"null", false, "暂无可用打印机", 0},
        {R"({"ID":1})", false, "暂无可用打印机", 0},
        {"[]", true, "M", 0},
        {R"([{"ID":1,"PrintName":"前台"},"x",{"ID":"2"}])", true, "M", 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.data);
        reply("getPrintServer", true, "M", c.data);
        test::Calls<std::vector<Printer>> calls;
        Printer::listPrinterOfCompany(1, calls.callback());
        EXPECT_EQ(calls.only().success, c.success);
        EXPECT_EQ(calls.only().message, c.message);
        EXPECT_EQ(calls.only().result ? calls.only().result->size() : 0u, c.printers);
    }
}

TEST_F(Documents, AgreementsTickAndKeepTheirWholeID) {
    Agreement a(dict(R"({"ID":401,"Name":"入网协议","IsChecked":2})"));
    EXPECT_FALSE(a.checked());
    a.setChecked(true);
    EXPECT_EQ(a.raw().find("IsChecked")->asNumber(), Number(int32_t{1}));
    EXPECT_TRUE(a.checked());
    a.setChecked(false);
    EXPECT_EQ(writeJSON(*a.raw().find("IsChecked")), "0");
    a.setID(1L << 40 | 5);
    EXPECT_EQ(writeJSON(*a.raw().find("ID")), "1099511627781") << "stored whole, sent on as such";
    EXPECT_EQ(a.ID(), 5L) << "read through 32 bits";
}

TEST_F(Documents, SubmitResults) {
    ActionFormOrderSubmitResult r(dict(R"({"ID":"7101","RecID":-5,"IsPreProcessAgreement":2,"Path":"/r.pdf","SN":"AF1",)"
                                       R"("Data":[{"ID":401,"Name":"入网协议"},"x",{"ID":402}]})"));
    EXPECT_EQ(r.ID(), 7101L);
    EXPECT_EQ(r.recID(), -5L) << "sign-extended";
    EXPECT_FALSE(r.isPreProcessAgreement()) << "only 1 is true";
    EXPECT_EQ(r.agreements().size(), 2u);
    EXPECT_EQ(logLines, std::vector<std::string>{"array convert error:a string is not a dictionary"});
    EXPECT_TRUE(ActionFormOrderSubmitResult(dict(R"({"IsPreProcessAgreement":"1"})")).isPreProcessAgreement()) << "the text 1 reads as 1";
    EXPECT_TRUE(ActionFormOrderSubmitResult(dict("{}")).agreements().empty());
}

TEST_F(Documents, AReceiptFromASubmitResultAndALocalPDF) {
    ActionFormOrderSubmitResult r(dict(R"({"RecID":9001,"SN":"AF7101"})"));
    Receipt receipt(r, "/tmp/签名 1#.pdf");
    EXPECT_EQ(writeJSON(receipt.raw()), R"({"ID":9001,"SN":"AF7101","CRMXML":"file:///tmp/%E7%AD%BE%E5%90%8D%201%23.pdf"})");
    EXPECT_EQ(receipt.raw().find("ID")->asNumber().kind(), Number::Kind::Int32);
    EXPECT_EQ(receipt.showingPath(), "file:///tmp/%E7%AD%BE%E5%90%8D%201%23.pdf");
    std::string relative = *Receipt(r, "signed.pdf").crmXml();
    EXPECT_EQ(relative.rfind("file:///", 0), 0u);
    EXPECT_EQ(relative.substr(relative.size() - 11), "/signed.pdf") << "made absolute";
    EXPECT_THROW(Receipt(ActionFormOrderSubmitResult(dict(R"({"RecID":1})")), "/tmp/a.pdf"), std::invalid_argument);

    bool called = false;
    Receipt::createReceiptFromOrderSubmitResult(r, [&](bool, std::optional<std::string>, std::optional<Receipt>) { called = true; });
    EXPECT_FALSE(called) << "it has no work of its own";
}

TEST_F(Documents, WhereAReceiptIsShownFrom) {
    struct {
        const char* address;
        const char* receipt;
        std::optional<std::string> path;
    } cases[] = {
        {"http://h/base", R"({"SignPath":"","CRMXML":"http://cdn/r.pdf"})", "http://cdn/r.pdf"},
        {"http://h/base", R"({"SignPath":"upload/s.pdf","CRMXML":"http://cdn/r.pdf"})", "http://h/base/upload/s.pdf"},
        {"http://h/base/", R"({"SignPath":"/upload/s.pdf"})", "http://h/base/upload/s.pdf"},
        {"http://h", R"({"CRMXML":"https://cdn/r.pdf"})", "https://cdn/r.pdf"},
        {"http://h", R"({"CRMXML":"file:///tmp/r.pdf"})", "file:///tmp/r.pdf"},
        {"http://h", R"({"CRMXML":"FILE:///tmp/r.pdf"})", "http://h/FILE:///tmp/r.pdf"},
        {"http://h", R"({"CRMXML":"receipts/r.pdf","SignPath":null})", "http://h/receipts/r.pdf"},
        {"http://h", "{}", std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.receipt);
        Server::setAddress(c.address);
        EXPECT_EQ(Receipt(dict(c.receipt)).showingPath(), c.path);
    }
    EXPECT_TRUE(Receipt(dict(R"({"IsPreProcessAgreement":1})")).isPreProcessAgreement());
    EXPECT_FALSE(Receipt(dict(R"({"IsPreProcessAgreement":2})")).isPreProcessAgreement());
    Dictionary shared = dict(R"({"SN":"A"})");
    Receipt keeps(shared);
    shared.set("SN", "B");
    EXPECT_EQ(keeps.SN(), "B") << "the very dictionary given";
}

TEST_F(Documents, ReceiptSets) {
    ReceiptSet set(dict(R"({"DisplayIndex":2,"OrderID":1099511627776,"SN":"SN1","Files":[{"ID":1},{"ID":2}]})"));
    EXPECT_EQ(set.orderID(), 1099511627776);
    ASSERT_EQ(set.files().size(), 2u);
    EXPECT_EQ(set.files()[1].ID(), 2);
    EXPECT_TRUE(ReceiptSet(dict(R"({"SN":"x"})")).files().empty());
    try {
        ReceiptSet(dict(R"({"Files":[{},"x"]})"));
        ADD_FAILURE() << "a file that is not a dictionary";
    } catch (const ValueError& e) {
        EXPECT_STREQ(e.what(), "Files[1]: a string is not a dictionary");
    }
}

} // namespace
} // namespace veltrane
