/// @file
/// The counter sale itself: a customer (perhaps represented by an agent) buys
/// devices, phone numbers and a plan item, with an installation address, a
/// consignee and the receipts of the sale. The server delivers orders in the
/// incoming format, read by the dictionary constructor; the screens fill an
/// order field by field and submit it in the outgoing format (postOrderInfo).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/catalogue/NumberInfo.h"
#include "veltrane/catalogue/PlanInfo.h"
#include "veltrane/catalogue/PlanItem.h"
#include "veltrane/catalogue/ProductInfo.h"
#include "veltrane/customer/Address.h"
#include "veltrane/customer/Area.h"
#include "veltrane/customer/Person.h"
#include "veltrane/documents/Receipt.h"
#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/DataPage.h"
#include "veltrane/foundation/Date.h"
#include "veltrane/foundation/Deferred.h"

namespace veltrane {

/// One counter sale, as the server lists it and as the screens submit it.
class Order {
public:
    /// Type, ID, prices 0; customer and agent two new, empty persons (every
    /// text ""); everything else unset.
    Order() = default;

    /// Reads the incoming format, key by key: "ID" (optLong), "SN" (text),
    /// "InstallDate" (when the key is present, null included: optDouble
    /// seconds), the customer's "CTUserName", "Address", "CTCardNumber",
    /// "CTPictureHeads", "CTPictureTails" (as text), the consignee's
    /// "Consignee", "Address", "Tel" and the agent's "AgentCT…" keys (as they
    /// stand), "CreateTime" (always; absent is 1970), "Remarks", "TypeName",
    /// "ReceiptPath" (as they stand), "Amount" (float reading), "Type"
    /// (32-bit reading, sign-extended, as unsigned), the titles of address,
    /// city and district ("CTAddress", "AreaName", "SubAreaName"), receipts
    /// ("ReceiptArr", the tolerant list conversion), goods ("GoodsInfo": an
    /// array, or one goods dictionary), numbers ("PhoneInfo": an array only)
    /// and plan ("PlanInfo": its first element). Keeps the very dictionary.
    /// Throws ValueError, located at the key, for JSON null (or a container)
    /// where a number is read ("Amount", "Type", "GoodsInfo[0].GoodsID"...),
    /// and for a goods or phone element that is not a dictionary.
    ///
    /// From a reply not written since it was parsed, only what can raise or
    /// log is read here; the fields are read on first use (or before the
    /// reply's first write), with the same result. So a page of orders costs
    /// little until its orders are shown; the first getter of an order may
    /// allocate, and throws std::bad_alloc when memory runs out.
    explicit Order(const Dictionary& dictionary);

    /// The dictionary the order was read from; nothing for an order made by the screens.
    ///@{
    const std::optional<Dictionary>& raw() const noexcept { return raw_; }
    void setRaw(std::optional<Dictionary> v) { raw_ = std::move(v); }
    ///@}
    /// The kind of sale, "Type": 1 a new line, 2 a device, others as the server names them (typeName).
    ///@{
    unsigned long type() const noexcept { return type_; }
    void setType(unsigned long v) noexcept { type_ = v; }
    ///@}
    /// "TypeName" as it stands ("新装", "购机").
    ///@{
    const std::optional<Value>& typeName() const { return fields_.get().typeName; }
    void setTypeName(std::optional<Value> v) { fields_.edit().typeName = std::move(v); }
    ///@}
    /// 0 for an order not yet created.
    ///@{
    long ID() const { return fields_.get().ID; }
    void setID(long v) { fields_.edit().ID = v; }
    ///@}
    /// The serial number the server gave the order, "SN".
    ///@{
    const std::optional<std::string>& SN() const { return fields_.get().SN; }
    void setSN(std::optional<std::string> v) { fields_.edit().SN = std::move(v); }
    ///@}
    /// The devices sold ("GoodsInfo"), each with its IMEI and deal price.
    ///@{
    const std::optional<std::vector<ProductInfo>>& products() const { return fields_.get().products; }
    void setProducts(std::optional<std::vector<ProductInfo>> v) { fields_.edit().products = std::move(v); }
    ///@}
    /// The phone numbers sold ("PhoneInfo"), each with its prefund.
    ///@{
    const std::optional<std::vector<NumberInfo>>& numbers() const { return fields_.get().numbers; }
    void setNumbers(std::optional<std::vector<NumberInfo>> v) { fields_.edit().numbers = std::move(v); }
    ///@}
    /// The plan as the server listed it ("PlanInfo", its first element).
    ///@{
    const std::optional<PlanInfo>& plan() const { return fields_.get().plan; }
    void setPlan(std::optional<PlanInfo> v) { fields_.edit().plan = std::move(v); }
    ///@}
    /// The chosen item of the plan: this, not plan(), is what is submitted.
    ///@{
    const std::optional<PlanItem>& planItem() const { return fields_.get().planItem; }
    void setPlanItem(std::optional<PlanItem> v) { fields_.edit().planItem = std::move(v); }
    ///@}
    /// The buyer, filled in in place by the screens.
    ///@{
    const Person& customer() const { return fields_.get().customer; }
    Person& customer() { return fields_.edit().customer; }
    void setCustomer(Person v) { fields_.edit().customer = std::move(v); }
    ///@}
    /// A second person who acts for the customer.
    ///@{
    const Person& agent() const { return fields_.get().agent; }
    Person& agent() { return fields_.edit().agent; }
    void setAgent(Person v) { fields_.edit().agent = std::move(v); }
    ///@}
    /// When the server created the order ("CreateTime"; 1970 when it sent none).
    ///@{
    const std::optional<Date>& createTime() const { return fields_.get().createTime; }
    void setCreateTime(std::optional<Date> v) { fields_.edit().createTime = v; }
    ///@}
    /// What the customer is charged.
    ///@{
    float dealPrice() const noexcept { return dealPrice_; }
    void setDealPrice(float v) noexcept { dealPrice_ = v; }
    ///@}
    /// The city of the installation address ("CTCityID" when submitted, "AreaName" when listed).
    ///@{
    const std::optional<Area>& city() const { return fields_.get().city; }
    void setCity(std::optional<Area> v) { fields_.edit().city = std::move(v); }
    ///@}
    /// The district within the city.
    ///@{
    const std::optional<Area>& area() const { return fields_.get().area; }
    void setArea(std::optional<Area> v) { fields_.edit().area = std::move(v); }
    ///@}
    /// The installation address.
    ///@{
    const std::optional<Address>& address() const { return fields_.get().address; }
    void setAddress(std::optional<Address> v) { fields_.edit().address = std::move(v); }
    ///@}
    /// The consignee, who receives the goods: "Consignee", as it stands.
    ///@{
    const std::optional<Value>& contactName() const { return fields_.get().contactName; }
    void setContactName(std::optional<Value> v) { fields_.edit().contactName = std::move(v); }
    ///@}
    /// Where the consignee receives them: "Address", as it stands.
    ///@{
    const std::optional<Value>& contactAddress() const { return fields_.get().contactAddress; }
    void setContactAddress(std::optional<Value> v) { fields_.edit().contactAddress = std::move(v); }
    ///@}
    /// The consignee's telephone: "Tel", as it stands.
    ///@{
    const std::optional<Value>& contactTel() const { return fields_.get().contactTel; }
    void setContactTel(std::optional<Value> v) { fields_.edit().contactTel = std::move(v); }
    ///@}
    /// The dealer's remarks, "Remarks", as they stand.
    ///@{
    const std::optional<Value>& remarks() const { return fields_.get().remarks; }
    void setRemarks(std::optional<Value> v) { fields_.edit().remarks = std::move(v); }
    ///@}
    /// The receipts of the sale ("ReceiptArr").
    ///@{
    const std::optional<std::vector<Receipt>>& receipts() const { return fields_.get().receipts; }
    void setReceipts(std::optional<std::vector<Receipt>> v) { fields_.edit().receipts = std::move(v); }
    ///@}
    /// Where the server keeps the signed receipt, "ReceiptPath", as it stands.
    ///@{
    const std::optional<Value>& receiptPath() const { return fields_.get().receiptPath; }
    void setReceiptPath(std::optional<Value> v) { fields_.edit().receiptPath = std::move(v); }
    ///@}
    /// When the line is to be installed ("InstallDate").
    ///@{
    const std::optional<Date>& installDate() const { return fields_.get().installDate; }
    void setInstallDate(std::optional<Date> v) { fields_.edit().installDate = v; }
    ///@}

    /// The goods' deal prices, then the numbers' prefunds, added up in single
    /// precision (the products' price is not used).
    float totalPrice() const;

    /// POST "postCreateOrder" with the outgoing format: "OrderID" (double,
    /// only for an ID of 1 or more), "InstallDate" (double seconds, when
    /// set), "Type" (unsigned), "CompanyID", "UserID" (32-bit), "GoodsInfo",
    /// "PlanInfo", "PhoneInfo" (compact JSON text, when there are goods, a plan
    /// item, numbers), the customer's and agent's nine keys, "CTCityID",
    /// "CTAreaID" (32-bit, 0 when unset), "CTAddress", "ReferenceAmount" and
    /// "Amount" (truncated toward zero, word-sized), "Consignee", "Address",
    /// "Tel", "Remarks"; every unset value JSON null. Logs the dictionary;
    /// the completion gets (flag, message, flag). A nested list that JSON
    /// cannot hold is left out, with a log line.
    static void postOrderInfo(const Order& order, int32_t withCompanyID, int32_t andUserID, FlagCallback callback);

    /// GET "getOrders" with "companyid", "userid", "status" (unsigned, not
    /// for 0), "keyword" (when given; "" is sent) and "p": a page of orders,
    /// one bad order failing the whole page.
    static void listWithStatus(unsigned long status, int32_t andCompanyID, int32_t andUserID, std::optional<std::string> andKeywords,
                               int32_t ofPage, ResultCallback<DataPage<Order>> callback);

private:
    /// Everything the dictionary gives but the two readings that can raise.
    struct Fields {
        std::optional<Value> typeName;
        long ID = 0;
        std::optional<std::string> SN;
        std::optional<std::vector<ProductInfo>> products;
        std::optional<std::vector<NumberInfo>> numbers;
        std::optional<PlanInfo> plan;
        std::optional<PlanItem> planItem;
        Person customer;
        Person agent;
        std::optional<Date> createTime;
        std::optional<Area> city;
        std::optional<Area> area;
        std::optional<Address> address;
        std::optional<Value> contactName, contactAddress, contactTel, remarks;
        std::optional<std::vector<Receipt>> receipts;
        std::optional<Value> receiptPath;
        std::optional<Date> installDate;
    };
    static Fields read(const Dictionary& dictionary);

    std::optional<Dictionary> raw_;
    float dealPrice_ = 0;  // read before type_, as a raising reading must be
    unsigned long type_ = 0;
    Deferred<Fields> fields_;
};

/// The display name of an order status: 0 "全部", 1 "已提交订单", 3 "退回修改",
/// 4 "成功订单", 5 "待收银", 10 "失败订单"; "未知状态" for every other code.
std::string stringOfOrderStatusName(unsigned long status);

} // namespace veltrane
