// Any JSON as a server reply: every record type built from it, and every
// class operation answered with it (as success and as failure) through the
// in-memory transport. Records may refuse a value with ValueError and
// unguarded reply handlers may let it leave the completion; anything else —
// another exception, a crash, undefined behaviour — is a finding.
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "veltrane/Veltrane.h"

namespace {

using namespace veltrane;

// Reads every property a record offers, so that live reads run too.
template <class R>
void build(const Value& v) {
    if (const Dictionary* d = v.dictionaryIf()) {
        try {
            R record(*d);
            (void)record;
        } catch (const ValueError&) {
        }
    }
}

// A completion that accepts whatever it is given.
template <class T>
ResultCallback<T> any() {
    return [](bool, std::optional<std::string>, std::optional<T>) {};
}
FlagCallback anyFlag() {
    return [](bool, std::optional<std::string>, bool) {};
}

using Operation = std::function<void()>;

const std::vector<Operation>& operations() {
    static const std::vector<Operation> all{
        [] { Tag::listWithCompany(1, 2, any<std::vector<Tag>>()); },
        [] { NumberInfo::listWithCompany(1, 2, 0, 0, "1", 1, any<DataPage<NumberInfo>>()); },
        [] { NumberInfo::lockPhoneNumber("13300000000", 1, anyFlag()); },
        [] { NumberInfo::unlockPhoneNumber("13300000000", 1, anyFlag()); },
        [] { ProductInfo::listForCompany(1, 1, std::string("x"), any<DataPage<ProductInfo>>()); },
        [] { ProductInfo::listForCompany(1, std::string("86"), 101, any<DataPage<ProductInfo>>()); },
        [] { ProductInfo::checkIMEI("86", 1, any<ProductInfo>()); },
        [] { ProductInfo::lockIMEI("86", 1, anyFlag()); },
        [] { ProductInfo::getInfoOfProduct(1, 1, any<Value>()); },
        [] { PlanInfo::listWithCompany(1, any<std::vector<PlanInfo>>()); },
        [] { PlanItem::listWithCompany(1, 1, std::nullopt, any<std::vector<PlanItem>>()); },
        [] { PlanItem::getDescriptionOfItem(1, any<Value>()); },
        [] { CompoundType::listWithCallback(any<std::vector<CompoundType>>()); },
        [] { Compound::listWithPlanItemID(1, 1, any<std::vector<Compound>>()); },
        [] { Compound::getDetailWithCompoundID(1, any<Value>()); },
        [] { BillingOption::listWithPlanItemID(1, 1, any<std::vector<BillingOption>>()); },
        [] { CRMInfo::checkWithBusinessNumber("1", any<CRMInfo>()); },
        [] { OfferMember::getWithCompanyID(1, std::string("1"), any<std::vector<OfferMember>>()); },
        [] { TelecomResource::list(1, 1, 1, any<std::vector<TelecomResource>>()); },
        [] { IDCardIndex::listWithCompanyID(1, any<DataPage<IDCardIndex>>()); },
        [] { IDCardInfo::getCardInfoWithIndex(1, any<IDCardInfo>()); },
        [] { IDCardInfo::uploadCardInfo(IDCardInfo(Dictionary{{"Name", "x"}}), anyFlag()); },
        [] { CertificateType::list(any<std::vector<CertificateType>>()); },
        [] { Area::list(0, any<std::vector<Area>>()); },
        [] { Address::listWithAreaID(1, 1, std::string("路"), any<std::vector<Address>>()); },
        [] { ServiceTime::listWithAreaCode(std::string("1"), any<std::vector<ServiceTime>>()); },
        [] { AcceptingInfo::getWithSN("SN", any<AcceptingInfo>()); },
        [] { Agreement::listWithSN("SN", any<std::vector<Agreement>>()); },
        [] { Agreement::createSheetWithSN("SN", {Value(1), Value("2")}, any<std::vector<std::string>>()); },
        [] { Printer::listPrinterOfCompany(1, any<std::vector<Printer>>()); },
        [] { Printer::sendPrintRequestOfOrderID(1, 1, 1, anyFlag()); },
        [] { Order::listWithStatus(1, 1, 7, std::string("张"), 1, any<DataPage<Order>>()); },
        [] { Action::list(any<std::vector<Action>>()); },
        [] { FormAction::listWithUserID(7, 1, any<std::vector<FormAction>>()); },
        [] { FormInput::listInputsWithAction(2, any<std::vector<FormInput>>()); },
        [] { ActionFormItem::listItemsForAction(2, any<std::vector<ActionFormItem>>()); },
        [] { ActionFormOrder::listTodaysOrders(any<std::vector<ActionFormOrder>>()); },
        [] { ActionFormOrder::checkOrderIsAccepting(std::string("AF1"), anyFlag()); },
        [] { ActionFormOrder::updateOrder(std::string("AF1"), 5, std::nullopt, any<Value>()); },
        [] { ActionFormOrderDetail::getDetailOfOrder(7001, any<ActionFormOrderDetail>()); },
        [] { AutoFormOrder::getOrderWithID(7001, any<AutoFormOrder>()); },
        [] { PushMessage::fetch(7, 0, any<std::vector<PushMessage>>()); },
        [] { Chat::listForCompany(1, 0, any<std::vector<Chat>>()); },
        [] { Chat::sendAsUser(7, std::string("你好"), std::string("text"), anyFlag()); },
        [] { GuideItem::loadWithCompany(1, any<std::vector<GuideItem>>()); },
        [] { SubApp::list(any<std::vector<SubApp>>()); },
        [] { Advertisment::listWithCallback(any<std::vector<Advertisment>>()); },
    };
    return all;
}

void buildEveryRecord(const Value& v) {
    build<Tag>(v);
    build<NumberInfo>(v);
    build<ProductInfo>(v);
    build<PlanInfo>(v);
    build<PlanItem>(v);
    build<CompoundType>(v);
    build<Compound>(v);
    build<BillingOption>(v);
    build<CRMInfo>(v);
    build<OfferMember>(v);
    build<TelecomResource>(v);
    build<IDCardIndex>(v);
    build<IDCardInfo>(v);
    build<CertificateType>(v);
    build<Area>(v);
    build<ServiceTime>(v);
    build<AcceptingInfo>(v);
    build<Agreement>(v);
    build<Printer>(v);
    build<ActionFormOrderSubmitResult>(v);
    build<ReceiptSet>(v);
    if (const Dictionary* d = v.dictionaryIf()) {
        try {
            Order order(*d);  // and sent back in the outgoing format
            (void)order.totalPrice();
            Order::postOrderInfo(order, 1, 7, anyFlag());
        } catch (const ValueError&) {
        }
    }
    build<FormAction>(v);
    build<FormInput>(v);
    build<ActionFormItem>(v);
    build<ActionFormData>(v);
    build<AutoFormOrder>(v);
    build<PushMessage>(v);
    build<Chat>(v);
    build<GuideItem>(v);
    build<Advertisment>(v);
    if (const Dictionary* d = v.dictionaryIf()) (void)SubApp(*d).name();
    if (const Dictionary* d = v.dictionaryIf()) {
        try {
            ActionFormOrder order(*d);
            (void)order.copyActionList();
            (void)order.getAllActionsName();
            (void)ActionFormOrderRecord(*d).statusName();
            ActionFormOrderDetail detail(*d);
            (void)detail.order().getAllActionsName();
            Action action(*d);
            action.setPrice(action.price() * 3.5f);
        } catch (const ValueError&) {
        }
        // Whatever the reply holds is submitted back as it stands.
        ActionFormOrder::post(v, any<ActionFormOrderSubmitResult>());
        ActionFormOrder::postUpdateData(v, any<Value>());
        AutoFormOrder::postOrderWithJsonObject(v, any<Value>());
    }
    if (const Dictionary* d = v.dictionaryIf()) {
        Receipt receipt(*d);
        (void)receipt.showingPath();
        (void)receipt.isPreProcessAgreement();
    }
    if (const Dictionary* d = v.dictionaryIf()) {
        try {
            (void)NumberInfo::loadFromActionOrderInfo(*d).raw();
            (void)OfferMember::loadFromActionFormOrder(*d);
            (void)IDCardInfo::loadFromActionOrderInfo(*d).dictionaryWithIDCardInfo();
            Address address = Address::loadFromActionOrderInfo(*d);
            (void)address.ID();
            (void)address.title();
            (void)address.siteID();
            (void)address.siteName();
        } catch (const ValueError&) {
        }
    }
}

struct Setup {
    std::shared_ptr<MemoryTransport> transport = std::make_shared<MemoryTransport>();
    Setup() {
        setLogSink({});
        Server::setTransport(transport);
        Account::signIn(User(7, 1, "fuzz"));
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Setup setup;
    if (size == 0) return 0;
    Value reply;
    try {
        reply = parseJSON(std::string_view(reinterpret_cast<const char*>(data) + 1, size - 1));
    } catch (const JSONError&) {
        return 0;
    }
    // The first byte says whether the gateway reports success.
    bool success = data[0] & 1;
    setup.transport->setHandler([&](const MemoryTransport::Request&) { return MemoryTransport::Reply{success, "fuzz", reply}; });
    buildEveryRecord(reply);  // an order read from the reply is submitted too
    for (const Operation& operation : operations()) {
        try {
            operation();
        } catch (const ValueError&) {
            // An unguarded reply handler lets a conversion failure out.
        }
    }
    // The handler sees this call's reply: it must not outlive it.
    setup.transport->setHandler([](const MemoryTransport::Request&) { return MemoryTransport::Reply{false, "fuzz", Value()}; });
    setup.transport->clear();
    return 0;
}
