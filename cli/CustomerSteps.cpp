// The demo's customer steps: the identity card captured, uploaded and read
// back, certificate types, the installation address from the area tree, the
// installation slots, and an accepting centre.
#include "cli/Demo.h"
#include "veltrane/customer/AcceptingInfo.h"
#include "veltrane/customer/CertificateType.h"
#include "veltrane/customer/IDCardIndex.h"
#include "veltrane/foundation/JSON.h"

namespace veltrane::cli {

namespace {

constexpr int32_t kCompany = 1;

// A 1×1 PNG: the card's photo as the scanner gives it.
const std::string kPhoto("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\0\x01\0\0\0\x01\x08\x06\0\0\0\x1f\x15\xc4\x89", 33);

IDCardInfo scannedCard() {
    IDCardInfo card;
    card.setName("赵 敏");
    card.setGender("女");
    card.setNationality("汉");
    card.setBirthday("1995-12-12");
    card.setAddress("广东省广州市天河区天河北路233号 A&B座");
    card.setSerial("440106199512126789");
    card.setIssuingAuthority("广州市公安局天河分局");
    card.setValidityPeriod("2016.01.01-2036.01.01");
    card.setPhoto(kPhoto);
    return card;
}

} // namespace

std::vector<Step> customerSteps() {
    return {
        {"Capture and upload the customer's identity card", [](Sale&, Transcript& t) {
             IDCardInfo card = scannedCard();
             auto uploaded = awaitFlag([&](auto done) { IDCardInfo::uploadCardInfo(card, done); });
             if (!uploaded.success) return t.failed("postIdcard", uploaded.message);
             t.line(text(card.name()) + " " + text(card.serial()) + ", photo of " + std::to_string(card.photo()->size()) + " bytes: " +
                    text(uploaded.message));
         }},
        {"Read the card back by its index", [](Sale& sale, Transcript& t) {
             auto page = await<DataPage<IDCardIndex>>([](auto done) { IDCardIndex::listWithCompanyID(kCompany, done); });
             if (!received(t, "getIdcardPages", page)) return;
             std::optional<IDCardIndex> line;
             for (const IDCardIndex& i : page.result->data().value_or(std::vector<IDCardIndex>()))
                 if (i.serial() == scannedCard().serial()) line = i;
             t.line(std::to_string(page.result->totalRows()) + " cards stored for the company");
             if (!t.needs(line.has_value(), "the uploaded card in the list")) return;
             auto card = await<IDCardInfo>([&](auto done) { IDCardInfo::getCardInfoWithIndex(line->ID(), done); });
             if (!received(t, "getIdcardInfo", card)) return;
             t.line("#" + std::to_string(line->ID()) + ": " + text(card.result->name()) + ", " + text(card.result->gender()) + ", " +
                    text(card.result->nationality()) + ", " + text(card.result->address()));
             t.line(std::string("photo ") + (card.result->photo() == kPhoto ? "the same bytes as uploaded" : "DIFFERENT from the upload"));
             sale.card = *card.result;
         }},
        {"Certificate types", [](Sale&, Transcript& t) {
             auto types = await<std::vector<CertificateType>>([](auto done) { CertificateType::list(done); });
             if (!received(t, "getCertificateList", types)) return;
             std::string names;
             for (const CertificateType& type : *types.result) names += (names.empty() ? "" : "、") + text(type.Name());
             t.line(names);
         }},
        {"City, district and installation address", [](Sale& sale, Transcript& t) {
             auto cities = await<std::vector<Area>>([](auto done) { Area::list(0, done); });
             if (!received(t, "getTelecomArea", cities)) return;
             if (cities.result->empty()) return t.line("no cities");
             sale.city = detach(cities.result->front());
             auto districts = await<std::vector<Area>>([&](auto done) { Area::list(sale.city->ID(), done); });
             if (!received(t, "getTelecomArea", districts)) return;
             if (districts.result->empty()) return t.line("no districts in " + text(sale.city->title()));
             sale.district = detach(districts.result->front());
             t.line(text(sale.city->title()) + " › " + text(sale.district->title()));
             auto addresses = await<std::vector<Address>>(
                 [&](auto done) { Address::listWithAreaID(sale.city->ID(), sale.district->ID(), "体育西路", done); });
             if (!received(t, "getQueryAddress", addresses)) return;
             for (const Address& a : *addresses.result)
                 t.line("#" + std::to_string(a.ID()) + " " + text(a.title()) + " (site " + text(a.siteName()) + ")");
             if (!addresses.result->empty()) sale.address = detach(addresses.result->front());
         }},
        {"Installation slots", [](Sale& sale, Transcript& t) {
             if (!t.needs(sale.district.has_value(), "a district")) return;
             auto days = await<std::vector<ServiceTime>>([&](auto done) { ServiceTime::listWithAreaCode(std::to_string(sale.district->ID()), done); });
             if (!received(t, "getInstallTime", days)) return;
             for (const ServiceTime& day : *days.result) t.line(text(day.date()) + ": " + describeOrNull(day.time()));
             if (!days.result->empty()) sale.installation = detach(days.result->front());
         }},
        {"Accepting centres of earlier orders", [](Sale&, Transcript& t) {
             for (const char* SN : {"AF20261120001", "AF20261121001"}) {
                 auto info = await<AcceptingInfo>([&](auto done) { AcceptingInfo::getWithSN(SN, done); });
                 if (!info.success) return t.failed("getAcceptUserInfo", info.message);
                 if (!info.result) t.line(std::string(SN) + ": not accepted yet");
                 else
                     t.line(std::string(SN) + ": accepted by " + text(info.result->userName()) + " of " + text(info.result->acceptingCenterName()) +
                            " (" + text(info.result->contactTel()) + ") at " + info.result->createTime().iso8601());
             }
         }},
    };
}

} // namespace veltrane::cli
