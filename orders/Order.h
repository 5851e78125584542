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
    const std::optional<Value>& typeName() const noexcept { return typeName_; }
    void setTypeName(std::optional<Value> v) { typeName_ = std::move(v); }
    ///@}
    /// 0 for an order not yet created.
    ///@{
    long ID() const noexcept { return ID_; }
    void setID(long v) noexcept { ID_ = v; }
    ///@}
    /// The serial number the server gave the order, "SN".
    ///@{
    const std::optional<std::string>& SN() const noexcept { return SN_; }
    void setSN(std::optional<std::string> v) { SN_ = std::move(v); }
    ///@}
    /// The devices sold ("GoodsInfo"), each with its IMEI and deal price.
    ///@{
    const std::optional<std::vector<ProductInfo>>& products() const noexcept { return products_; }
    void setProducts(std::optional<std::vector<ProductInfo>> v) { products_ = std::move(v); }
    ///@}
    /// The phone numbers sold ("PhoneInfo"), each with its prefund.
    ///@{
    const std::optional<std::vector<NumberInfo>>& numbers() const noexcept { return numbers_; }
    void setNumbers(std::optional<std::vector<NumberInfo>> v) { numbers_ = std::move(v); }
    ///@}
    /// The plan as the server listed it ("PlanInfo", its first element).
    ///@{
    const std::optional<PlanInfo>& plan() const noexcept { return plan_; }
    void setPlan(std::optional<PlanInfo> v) { plan_ = std::move(v); }
    ///@}
    /// The chosen item of the plan: this, not plan(), is what is submitted.
    ///@{
    const std::optional<PlanItem>& planItem() const noexcept { return planItem_; }
    void setPlanItem(std::optional<PlanItem> v) { planItem_ = std::move(v); }
    ///@}
    /// The buyer, filled in in place by the screens.
    ///@{
    const Person& customer() const noexcept { return customer_; }
    Person& customer() noexcept { return customer_; }
    void setCustomer(Person v) { customer_ = std::move(v); }
    ///@}
    /// A second person who acts for the customer.
    ///@{
    const Person& agent() const noexcept { return agent_; }
    Person& agent() noexcept { return agent_; }
    void setAgent(Person v) { agent_ = std::move(v); }
    ///@}
    /// When the server created the order ("CreateTime"; 1970 when it sent none).
    ///@{
    const std::optional<Date>& createTime() const noexcept { return createTime_; }
    void setCreateTime(std::optional<Date> v) noexcept { createTime_ = v; }
    ///@}
    /// What the customer is charged.
    ///@{
    float dealPrice() const noexcept { return dealPrice_; }
    void setDealPrice(float v) noexcept { dealPrice_ = v; }
    ///@}
    /// The city of the installation address ("CTCityID" when submitted, "AreaName" when listed).
    ///@{
    const std::optional<Area>& city() const noexcept { return city_; }
    void setCity(std::optional<Area> v) { city_ = std::move(v); }
    ///@}
    /// The district within the city.
    ///@{
    const std::optional<Area>& area() const noexcept { return area_; }
    void setArea(std::optional<Area> v) { area_ = std::move(v); }
    ///@}
    /// The installation address.
    ///@{
    const std::optional<Address>& address() const noexcept { return address_; }
    void setAddress(std::optional<Address> v) { address_ = std::move(v); }
    ///@}
    /// The consignee, who receives the goods: "Consignee", as it stands.
    ///@{
    const std::optional<Value>& contactName() const noexcept { return contactName_; }
    void setContactName(std::optional<Value> v) { contactName_ = std::move(v); }
    ///@}
    /// Where the consignee receives them: "Address", as it stands.
    ///@{
    const std::optional<Value>& contactAddress() const noexcept { return contactAddress_; }
    void setContactAddress(std::optional<Value> v) { contactAddress_ = std::move(v); }
    ///@}
    /// The consignee's telephone: "Tel", as it stands.
    ///@{
    const std::optional<Value>& contactTel() const noexcept { return contactTel_; }
    void setContactTel(std::optional<Value> v) { contactTel_ = std::move(v); }
    ///@}
    /// The dealer's remarks, "Remarks", as they stand.
    ///@{
    const std::optional<Value>& remarks() const noexcept { return remarks_; }
    void setRemarks(std::optional<Value> v) { remarks_ = std::move(v); }
    ///@}
    /// The receipts of the sale ("ReceiptArr").
    ///@{
    const std::optional<std::vector<Receipt>>& receipts() const noexcept { return receipts_; }
    void setReceipts(std::optional<std::vector<Receipt>> v) { receipts_ = std::move(v); }
    ///@}
    /// Where the server keeps the signed receipt, "ReceiptPath", as it stands.
    ///@{
    const std::optional<Value>& receiptPath() const noexcept { return receiptPath_; }
    void setReceiptPath(std::optional<Value> v) { receiptPath_ = std::move(v); }
    ///@}
    /// When the line is to be installed ("InstallDate").
    ///@{
    const std::optional<Date>& installDate() const noexcept { return installDate_; }
    void setInstallDate(std::optional<Date> v) noexcept { installDate_ = v; }
    ///@}

    /// The goods' deal prices, then the numbers' prefunds, added up in single
    /// precision (the products' price is not used).
    float totalPrice() const noexcept;

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
    std::optional<Dictionary> raw_;
    unsigned long type_ = 0;
    std::optional<Value> typeName_;
    long ID_ = 0;
    std::optional<std::string> SN_;
    std::optional<std::vector<ProductInfo>> products_;
    std::optional<std::vector<NumberInfo>> numbers_;
    std::optional<PlanInfo> plan_;
    std::optional<PlanItem> planItem_;
    Person customer_;
    Person agent_;
    std::optional<Date> createTime_;
    float dealPrice_ = 0;
    std::optional<Area> city_;
    std::optional<Area> area_;
    std::optional<Address> address_;
    std::optional<Value> contactName_, contactAddress_, contactTel_, remarks_;
    std::optional<std::vector<Receipt>> receipts_;
    std::optional<Value> receiptPath_;
    std::optional<Date> installDate_;
};

/// The display name of an order status: 0 "全部", 1 "已提交订单", 3 "退回修改",
/// 4 "成功订单", 5 "待收银", 10 "失败订单"; "未知状态" for every other code.
std::string stringOfOrderStatusName(unsigned long status);

} // namespace veltrane
