// The built-in data of the sandbox: a Guangzhou dealer's catalogue, customers,
// orders, forms and messages.
#include "sandbox/Seed.h"

#include "veltrane/foundation/JSON.h"

#include <stdexcept>

namespace veltrane::sandbox {

namespace {

const char* kSeed = R"JSON({
  "company": {"ID": 1, "Name": "广州市天河区体育西营业厅"},
  "users": [
    {"ID": 7, "CompanyID": 1, "LoginAccount": "gz_tianhe_07", "Name": "李晓明"},
    {"ID": 8, "CompanyID": 1, "LoginAccount": "gz_tianhe_08", "Name": "黄丽娟"}
  ],
  "labels": [
    {"ID": 1, "Type": 1, "Title": "加急", "Content": "客户要求当天办结"},
    {"ID": 2, "Type": 1, "Title": "上门", "Content": "需要上门安装宽带"},
    {"ID": 3, "Type": 1, "Title": "老用户", "Content": "在网五年以上的老用户"},
    {"ID": 4, "Type": 2, "Title": "续约", "Content": "合约到期续约"},
    {"ID": 5, "Type": 2, "Title": "携号转网", "Content": "从其他运营商携号转入"}
  ],
  "goods": [
    {"ID": 101, "TAC": "86451205", "Name": "青岚 Q60 Pro 12GB+512GB 雅川青", "Picture": "/uploads/goods/q60pro.jpg", "Price": 6999, "Brand": "青岚", "Stock": 8},
    {"ID": 102, "TAC": "35407115", "GoodsName": "远帆 F15 128GB 黑色", "Picture": "/uploads/goods/f15.jpg", "Price": 5999, "Brand": "远帆", "Stock": 8},
    {"ID": 103, "TAC": "86978604", "Name": "瀚星 14 16GB+512GB 白色", "Picture": "/uploads/goods/hx14.jpg", "Price": 4599, "Brand": "瀚星", "Stock": 8},
    {"ID": 104, "TAC": "86301306", "Title": "晨曦 X50 8GB+256GB 燃橙色", "Picture": "/uploads/goods/x50.jpg", "Price": 1499.5, "Brand": "晨曦", "Stock": 8},
    {"ID": 105, "TAC": "86112207", "Name": "云桥 5G 随身WiFi", "Picture": "/uploads/goods/mifi.jpg", "Price": 399, "Brand": "云桥通信", "Stock": 8}
  ],
  "plans": [
    {"ID": 1, "Name": "云桥5G畅享套餐", "PlanType": 2},
    {"ID": 2, "Name": "云桥4G融合套餐", "PlanType": 1},
    {"ID": 3, "Name": "校园青春卡", "PlanType": 2}
  ],
  "planItems": [
    {"ID": 11, "PlanID": 1, "Name": "5G畅享129元套餐", "PlanType": 2, "Description": "<p>月费129元，含国内流量30GB、国内通话500分钟，赠送来电显示。</p>"},
    {"ID": 12, "PlanID": 1, "Name": "5G畅享199元套餐", "PlanType": 2, "Description": "<p>月费199元，含国内流量60GB、国内通话1000分钟、千兆宽带。</p>"},
    {"ID": 13, "PlanID": 1, "Name": "5G畅享299元套餐", "PlanType": 2, "Description": "<p>月费299元，含国内流量100GB、国内通话2000分钟、千兆宽带和云桥云盘。</p>"},
    {"ID": 21, "PlanID": 2, "Name": "4G融合89元套餐", "PlanType": 1, "Description": "<p>月费89元，含国内流量15GB、国内通话300分钟、200M宽带。</p>"},
    {"ID": 31, "PlanID": 3, "Name": "青春卡19元", "PlanType": 2, "Description": "<p>月费19元，含定向流量40GB。</p>"}
  ],
  "compoundTypes": [
    {"ID": 1, "Name": "流量包"},
    {"ID": 2, "Name": "语音包"},
    {"ID": 3, "Name": "视频会员"}
  ],
  "compounds": [
    {"PackageID": 201, "PackageName": "5GB国内流量月包", "Price": 20, "TypeID": 1, "PlanItemIDs": [11, 12, 13, 21], "Detail": {"Validity": "当月有效", "Rules": "每月自动续订，可随时退订"}},
    {"PackageID": 202, "PackageName": "30GB国内流量季包", "Price": 59.9, "TypeID": 1, "PlanItemIDs": [11, 12, 13], "Detail": {"Validity": "90天", "Rules": "一次性订购"}},
    {"PackageID": 211, "PackageName": "300分钟语音包", "Price": 30, "TypeID": 2, "PlanItemIDs": [11, 21], "Detail": {"Validity": "当月有效", "Rules": "国内主叫"}},
    {"PackageID": 221, "PackageName": "腾讯视频VIP月卡", "Price": 15, "TypeID": 3, "PlanItemIDs": [11, 12, 13, 31], "Detail": {"Validity": "30天", "Rules": "开通后发送短信兑换码"}}
  ],
  "billingOptions": [
    {"AgreementID": 301, "AgreementName": "存费送费24个月", "AgreementDesc": "预存600元，分24个月返还，每月返25元", "Price": 600, "PlanItemIDs": [11, 12, 13]},
    {"AgreementID": 302, "AgreementName": "购机直降12个月", "AgreementDesc": "在网12个月，购机立减500元", "Price": 0, "PlanItemIDs": [11, 12, 13, 21]},
    {"AgreementID": 303, "AgreementName": "无合约", "AgreementDesc": "不签订合约，按标准资费", "Price": 0, "PlanItemIDs": [11, 12, 13, 21, 31]}
  ],
  "crm": [
    {"AccountNumber": "13312345678", "CustomerID": "C440100001", "CustomerName": "王芳", "IdentityType": "1", "IdentityNumber": "440106199001011234", "IdentityName": "居民身份证", "NumberTypeID": "5", "NumberTypeName": "移动电话", "AreaCode": "020"},
    {"AccountNumber": "02087654321", "CustomerID": "C440100002", "CustomerName": "陈伟强", "IdentityType": "1", "IdentityNumber": "440104198507152316", "IdentityName": "居民身份证", "NumberTypeID": "1", "NumberTypeName": "固定电话", "AreaCode": "020"}
  ],
  "offerMembers": [
    {"accNbr": "13312345678", "areaCode": "020", "custId": "C440100001", "prodId": "P9001", "prodSpecId": "5", "prodSpecName": "移动电话", "UIM": "8986031234567890001"},
    {"accNbr": "02087654321", "areaCode": "020", "custId": "C440100001", "prodId": "P9002", "prodSpecId": "1", "prodSpecName": "固定电话"},
    {"accNbr": "AD020123456", "areaCode": "020", "custId": "C440100001", "prodId": "P9003", "prodSpecId": "9", "prodSpecName": "宽带"}
  ],
  "resources": [
    {"name": "体育西路FTTH光口", "type": 1, "code": 1},
    {"name": "天河北电话交换端口", "type": 0, "code": 1},
    {"name": "光猫综合接入", "type": 2, "code": 0}
  ],
  "areas": [
    {"ID": 20, "PID": 0, "Title": "广州市"},
    {"ID": 755, "PID": 0, "Title": "深圳市"},
    {"ID": 2001, "PID": 20, "Title": "天河区"},
    {"ID": 2002, "PID": 20, "Title": "越秀区"},
    {"ID": 2003, "PID": 20, "Title": "海珠区"},
    {"ID": 7551, "PID": 755, "Title": "南山区"}
  ],
  "addresses": [
    {"addressID": 90001, "AreaID": 20, "SubAreaID": 2001, "addressDesc": "广州市天河区体育西路103号维多利广场A座1208", "site": {"siteID": 501, "siteName": "体育西路局站"}},
    {"addressID": 90002, "AreaID": 20, "SubAreaID": 2001, "addressDesc": "广州市天河区天河北路233号中信广场3501", "site": {"siteID": 502, "siteName": "天河北局站"}},
    {"addressID": 90003, "AreaID": 20, "SubAreaID": 2002, "addressDesc": "广州市越秀区北京路步行街188号", "site": {"siteID": 511, "siteName": "北京路局站"}},
    {"AddressID": 90004, "AreaID": 20, "SubAreaID": 2001, "AddressDesc": "广州市天河区体育西路191号中石化大厦B塔2206", "SiteID": 501, "SiteName": "体育西路局站"},
    {"AddressID": 90005, "AreaID": 20, "SubAreaID": 2003, "AddressDesc": "广州市海珠区江南大道中100号", "SiteID": 521, "SiteName": "江南西局站"},
    {"addressID": 75501, "AreaID": 755, "SubAreaID": 7551, "addressDesc": "深圳市南山区科技园科苑路15号", "site": {"siteID": 601, "siteName": "科技园局站"}}
  ],
  "installTimes": [
    {"AreaCode": "2001", "date": "2026-11-23", "time": ["09:00-12:00", "14:00-18:00"]},
    {"AreaCode": "2001", "date": "2026-11-24", "time": ["14:00-18:00"]},
    {"AreaCode": "2002", "date": "2026-11-23", "time": ["09:00-12:00"]}
  ],
  "certificateTypes": [
    {"ID": 1, "Name": "居民身份证", "Sort": 1},
    {"ID": 2, "Name": "港澳居民来往内地通行证", "Sort": 2},
    {"ID": 3, "Name": "台湾居民来往大陆通行证", "Sort": 3},
    {"ID": 4, "Name": "外国人永久居留身份证", "Sort": 4}
  ],
  "idCards": [
    {"ID": 1, "CompanyID": 1, "Name": "张三", "Gender": "男", "Nation": "汉", "Birthday": "1990-01-01", "Address": "广东省广州市天河区体育西路1号", "Number": "440106199001011234", "IssuingAuthority": "广州市公安局天河分局", "ValidityPeriod": "2015.06.01-2035.06.01", "Picture": "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNk+M9QDwADhgGAWjR9awAAAABJRU5ErkJggg==", "CardFrontUrl": "/uploads/idcard/1-front.jpg", "CardBackUrl": "/uploads/idcard/1-back.jpg"},
    {"ID": 2, "CompanyID": 1, "Name": "王芳", "Gender": "女", "Nation": "汉", "Birthday": "1990-01-01", "Address": "广东省广州市越秀区北京路2号", "Number": "440104199001012345", "IssuingAuthority": "广州市公安局越秀分局", "ValidityPeriod": "2018.03.15-2038.03.15", "CardFrontUrl": "/uploads/idcard/2-front.jpg", "CardBackUrl": "/uploads/idcard/2-back.jpg"}
  ],
  "orders": [
    {"ID": 5001, "SN": "SN20261118001", "Status": 1, "UserID": 7, "CompanyID": 1, "Type": 1, "TypeName": "新装", "CTUserName": "张三", "Address": "广州市天河区体育西路1号", "CTCardNumber": "440106199001011234", "CTPictureHeads": "/uploads/idcard/1-front.jpg", "CTPictureTails": "/uploads/idcard/1-back.jpg", "Consignee": "张三", "Tel": "13912345678", "CreateTime": 1763433600, "Remarks": "客户要求加急", "Amount": 6999, "AreaName": "广州市", "SubAreaName": "天河区", "CTAddress": "广州市天河区体育西路103号维多利广场A座1208", "InstallDate": 1763604000, "GoodsInfo": [{"GoodsID": 101, "GoodsName": "青岚 Q60 Pro 12GB+512GB 雅川青", "ReferencePrice": 6999, "IMEI": "861234567890126", "Price": 6999}], "PhoneInfo": [{"Phone": "13922223333", "Price": 50}], "PlanInfo": [{"PlanID": 11, "PlanName": "5G畅享129元套餐"}], "ReceiptArr": [{"ID": 801, "SN": "SN20261118001", "CRMXML": "/receipts/SN20261118001.pdf"}]},
    {"ID": 5002, "SN": "SN20261118002", "Status": 3, "UserID": 7, "CompanyID": 1, "Type": 1, "TypeName": "新装", "CTUserName": "陈伟强", "Address": "广州市越秀区北京路188号", "CTCardNumber": "440104198507152316", "Consignee": "陈伟强", "Tel": "13800138000", "CreateTime": 1763437200, "Remarks": "身份证照片模糊，请重新拍摄", "Amount": 129, "AreaName": "广州市", "SubAreaName": "越秀区", "PhoneInfo": [{"Phone": "18922334455", "Price": 100}], "PlanInfo": [{"PlanID": 11, "PlanName": "5G畅享129元套餐"}]},
    {"ID": 5003, "SN": "SN20261119001", "Status": 4, "UserID": 7, "CompanyID": 1, "Type": 2, "TypeName": "购机", "CTUserName": "刘洋", "Address": "广州市海珠区江南大道中100号", "CTCardNumber": "440105199203034567", "Consignee": "刘洋", "Tel": "13711112222", "CreateTime": 1763520000, "Remarks": null, "Amount": 5999, "GoodsInfo": {"ID": 102, "GoodsName": "远帆 F15 128GB 黑色", "Price": 5999, "IMEI": "354123456789012"}},
    {"ID": 5004, "SN": "SN20261120001", "Status": 5, "UserID": 7, "CompanyID": 1, "Type": 1, "TypeName": "新装", "CTUserName": "赵敏", "Address": "广州市天河区天河北路233号", "CTCardNumber": "440106199512126789", "Consignee": "赵敏", "Tel": "15011112222", "CreateTime": 1763606400, "Amount": 199, "PhoneInfo": [{"Phone": "17712345678", "Price": 300}], "PlanInfo": [{"PlanID": 12, "PlanName": "5G畅享199元套餐"}]},
    {"ID": 5005, "SN": "SN20261120002", "Status": 10, "UserID": 7, "CompanyID": 1, "Type": 1, "TypeName": "新装", "CTUserName": "孙丽", "Address": "广州市天河区林和西路9号", "CTCardNumber": "440106198811118888", "Consignee": "孙丽", "Tel": "13612345678", "CreateTime": 1763610000, "Remarks": "号码已被占用", "Amount": 89, "PhoneInfo": [{"Phone": "13398765432", "Price": 0}], "PlanInfo": [{"PlanID": 21, "PlanName": "4G融合89元套餐"}]}
  ],
  "actions": [
    {"ID": 1, "Name": "新装宽带", "Background": "#1E88E5", "Price": 0, "Type": 1, "TypeName": "宽带", "Status": 1, "IsNew": 1, "IsAuto": 0},
    {"ID": 2, "Name": "过户", "Background": "#43A047", "Price": 20, "Type": 2, "TypeName": "客户资料", "Status": 1, "IsNew": 0, "IsAuto": 1},
    {"ID": 3, "Name": "补换卡", "Background": "#FB8C00", "Price": 10.5, "Type": 3, "TypeName": "号卡", "Status": 1, "IsNew": 0, "IsAuto": 1},
    {"ID": 4, "Name": "套餐变更", "Background": "#8E24AA", "Price": 0, "Type": 4, "TypeName": "套餐", "Status": 1, "IsNew": 1, "IsAuto": 0}
  ],
  "actionForms": {
    "1": [
      {"type": "text", "label": "客户姓名", "key": "CustomerName", "required": "true", "placeholder": "请输入客户姓名"},
      {"type": "text", "label": "联系电话", "key": "ContactTel", "required": "true", "placeholder": "请输入11位手机号码"},
      {"type": "address", "label": "安装地址", "key": "AddressID", "required": "true", "placeholder": "请选择安装地址"},
      {"type": "choice", "label": "带宽", "key": "Bandwidth", "required": "false", "placeholder": "300M/500M/1000M"}
    ],
    "2": [
      {"type": "text", "label": "业务号码", "key": "AccountNumber", "required": "true", "placeholder": "请输入业务号码"},
      {"type": "idcard", "label": "新机主身份证", "key": "CustomerIdentity", "required": true, "placeholder": "请扫描身份证"}
    ],
    "3": [
      {"type": "text", "label": "业务号码", "key": "AccountNumber", "required": "true", "placeholder": "请输入业务号码"},
      {"type": "text", "label": "新卡UIM", "key": "UimCode", "required": "true", "placeholder": "请扫描UIM卡"}
    ],
    "4": [
      {"type": "text", "label": "业务号码", "key": "AccountNumber", "required": "true", "placeholder": "请输入业务号码"},
      {"type": "choice", "label": "新套餐", "key": "PlanItemID", "required": "true", "placeholder": "请选择套餐"}
    ]
  },
  "actionOrders": [
    {"orderInfo": {"ID": 7001, "SN": "AF20261120001", "CustomerName": "王芳", "CreateTime": 1763600000, "TemplateType": 1, "Status": 1, "Amount": 20, "AccountNumber": "13312345678", "Price": 50, "UimCode": "8986031234567890001", "AreaCode": "020", "NumberTypeID": 5, "NumberTypeName": "移动电话", "CustomerAddress": "广东省广州市越秀区北京路2号", "CustomerIdentity": "440104199001012345", "CustomerPhotoFront": "/uploads/idcard/2-front.jpg", "CustomerPhotoBack": "/uploads/idcard/2-back.jpg", "AddressID": 90003, "AddressDesc": "广州市越秀区北京路步行街188号", "SiteID": 511, "SiteName": "北京路局站"},
     "data": [{"action": {"ID": 2, "Name": "过户", "Background": "#43A047", "Price": 20, "Type": 2, "TypeName": "客户资料", "Status": 1}, "ActionForm": [{"type": "text", "label": "业务号码", "key": "AccountNumber", "required": "true", "placeholder": "请输入业务号码"}], "fields": {"AccountNumber": "13312345678"}}],
     "Receipt": [{"ID": 811, "SN": "AF20261120001", "CRMXML": "/receipts/AF20261120001.pdf", "IsPreProcessAgreement": 1}],
     "Sign": [{"ID": 812, "SN": "AF20261120001", "SignPath": "/uploads/sign/AF20261120001-signed.pdf", "SignID": 9}],
     "Records": [{"CreateTime": 1763600000, "Remarks": "受理", "UserName": "李晓明", "CompanyName": "广州市天河区体育西营业厅", "Status": 1}, {"CreateTime": 1763603600, "Remarks": "资料齐全，转收银", "UserName": "陈建国", "CompanyName": "天河受理中心", "Status": 5}],
     "crmInfo": {"CustomerID": "C440100001", "CustomerName": "王芳", "IdentityType": "1", "IdentityNumber": "440106199001011234", "IdentityName": "居民身份证", "NumberTypeID": "5", "NumberTypeName": "移动电话", "AreaCode": "020", "AccountNumber": "13312345678"},
     "accepting": {"UserName": "陈建国", "Phone": "020-38881234", "AcpName": "天河受理中心", "CreateTime": 1763603600}},
    {"orderInfo": {"ID": 7002, "SN": "AF20261121001", "CustomerName": "刘洋", "CreateTime": 1763690000, "TemplateType": 1, "Status": 1, "Amount": 0, "AccountNumber": "13711112222", "Price": 0, "UimCode": "8986031234567890077", "AreaCode": "020", "NumberTypeID": 0, "CustomerAddress": "广州市海珠区江南大道中100号", "CustomerIdentity": "440105199203034567", "addressID": 90005, "addressDesc": "广州市海珠区江南大道中100号", "site": {"siteID": 521, "siteName": "江南西局站"}},
     "data": [{"action": {"ID": 1, "Name": "新装宽带", "Background": "#1E88E5", "Price": 0, "Type": 1, "TypeName": "宽带", "Status": 1}, "ActionForm": [{"type": "text", "label": "客户姓名", "key": "CustomerName", "required": "true", "placeholder": "请输入客户姓名"}], "fields": {"CustomerName": "刘洋", "Bandwidth": "500M"}}],
     "Receipt": [], "Sign": [],
     "Records": [{"CreateTime": 1763690000, "Remarks": "受理", "UserName": "李晓明", "CompanyName": "广州市天河区体育西营业厅", "Status": 1}],
     "crmInfo": {}}
  ],
  "agreements": [
    {"ID": 401, "Name": "云桥通信移动业务入网协议", "IsChecked": 0},
    {"ID": 402, "Name": "宽带安装服务协议", "IsChecked": 0},
    {"ID": 403, "Name": "个人信息保护告知书", "IsChecked": 1}
  ],
  "printers": [
    {"ID": 1, "PrintName": "前台打印机 HP LaserJet M404"},
    {"ID": 2, "PrintName": "后台票据打印机 EPSON LQ-630K"}
  ],
  "pushMessages": [
    {"ID": 1, "Type": "order", "ReceiverID": 7, "Content": "订单 SN20261118001 已受理", "CreateTime": 1763433700},
    {"ID": 2, "Type": "notice", "ReceiverID": 7, "Content": "11月23日系统升级，22:00后暂停受理", "CreateTime": 1763520000}
  ],
  "chats": [
    {"ID": 1, "UserID": 8, "CompanyID": 1, "CreateTime": 1763600000, "Type": "text", "Content": "今天下午三点开晨会"},
    {"ID": 2, "UserID": 7, "CompanyID": 1, "CreateTime": 1763600060, "Type": "text", "Content": "收到"}
  ],
  "apps": [
    {"name": "号码选购", "icon": "/static/icons/number.png", "color": "#FF7043", "select": "/static/icons/number-on.png", "link": "app://numbers", "isbar": 1},
    {"name": "终端销售", "icon": "/static/icons/phone.png", "color": "#42A5F5", "select": "/static/icons/phone-on.png", "link": "app://goods", "isbar": "1"},
    {"name": "业务受理", "icon": "/static/icons/action.png", "color": "#66BB6A", "select": "/static/icons/action-on.png", "link": "app://actions", "isbar": 0},
    {"name": "营业厅公告", "icon": "/static/icons/notice.png", "color": "#AB47BC", "select": "/static/icons/notice-on.png", "link": "https://example.com/notice", "isbar": 2},
    {"name": null, "icon": "/static/icons/hidden.png", "color": "#BDBDBD", "link": "app://hidden", "isbar": 0}
  ],
  "ads": [
    {"name": "双11宽带特惠", "icon": "/static/banners/1111.jpg", "link": "https://example.com/promo/1111", "isbar": 1},
    {"name": "远帆 F15 合约机", "icon": "/static/banners/f15.jpg", "link": "app://goods/102", "isbar": "1"}
  ],
  "manifest": {"version": "1.1", "note": "修复已知问题，提升稳定性"}
})JSON";

// Fills "numbers" with 60 numbers on offer across the network types,
// device filters and ranks, when the seed has none.
Array generatedNumbers() {
    const char* prefixes[] = {"133", "139", "153", "177", "180", "189"};
    const int prestore[] = {0, 50, 100, 300};
    Array numbers;
    for (int i = 0; i < 60; ++i) {
        std::string tail = std::to_string(10000000 + (i * 7919 + 1234) % 90000000);
        std::string phone = std::string(prefixes[i % 6]) + tail;
        int rank = i % 4;
        Dictionary n{{"Phone", phone}, {"Rank", rank}, {"Prestore", prestore[rank]}, {"PlanType", i % 3 ? 2 : 1},
                     {"NetType", i % 2 + 1}, {"UIM", "898603" + std::to_string(1000000000000L + i)}};
        if (i % 5 == 0) n.set("Prestore", std::to_string(prestore[rank]));  // some servers send text
        numbers.push_back(n);
    }
    return numbers;
}

// Gives each goods line "units": its IMEIs in stock, made of the model's
// type code ("TAC"), a six-digit serial and the check digit.
void generateUnits(Array goods) {
    for (const Value& entry : goods) {
        Dictionary line = entry.asDictionary();
        if (line.contains("units")) continue;
        Array units;
        std::string tac = line.optString("TAC").value_or("86000000");
        for (long u = 0; u < line.optLong("Stock"); ++u) {
            std::string body = tac + std::to_string(204817 + u * 1379);
            units.push_back(body + imeiCheckDigit(body));
        }
        line.set("units", units);
    }
}

} // namespace

char imeiCheckDigit(const std::string& body) {
    int sum = 0;
    for (size_t i = 0; i < body.size(); ++i) {
        int d = body[i] - '0';
        if (i % 2 == 1) d = d * 2 > 9 ? d * 2 - 9 : d * 2;
        sum += d;
    }
    return static_cast<char>('0' + (10 - sum % 10) % 10);
}

const std::string& seedText() {
    static const std::string text = kSeed;
    return text;
}

namespace {

// A recursive-descent check of JSON syntax that keeps its place.
class SyntaxCheck {
public:
    explicit SyntaxCheck(std::string_view text) : t_(text) {}

    // The offset of the first error, or nothing.
    std::optional<size_t> run() {
        if (!value(0)) return at_;
        blanks();
        if (at_ != t_.size()) return at_;
        return std::nullopt;
    }

private:
    void blanks() {
        while (at_ < t_.size() && (t_[at_] == ' ' || t_[at_] == '\t' || t_[at_] == '\n' || t_[at_] == '\r')) ++at_;
    }
    bool literal(std::string_view word) {
        if (t_.substr(at_, word.size()) != word) return false;
        at_ += word.size();
        return true;
    }
    bool digits() {
        size_t start = at_;
        while (at_ < t_.size() && t_[at_] >= '0' && t_[at_] <= '9') ++at_;
        return at_ > start;
    }
    bool number() {
        if (t_[at_] == '-') ++at_;
        if (at_ < t_.size() && t_[at_] == '0') ++at_;
        else if (!digits()) return false;
        if (at_ < t_.size() && t_[at_] == '.' && (++at_, !digits())) return false;
        if (at_ < t_.size() && (t_[at_] == 'e' || t_[at_] == 'E')) {
            ++at_;
            if (at_ < t_.size() && (t_[at_] == '+' || t_[at_] == '-')) ++at_;
            if (!digits()) return false;
        }
        return true;
    }
    bool string() {
        for (++at_; at_ < t_.size(); ++at_) {
            unsigned char c = static_cast<unsigned char>(t_[at_]);
            if (c == '"') return ++at_, true;
            if (c < 0x20) return false;
            if (c == '\\' && ++at_ == t_.size()) return false;
        }
        return false;
    }
    template <class Item>
    bool items(char close, size_t depth, Item item) {
        ++at_;
        blanks();
        if (at_ < t_.size() && t_[at_] == close) return ++at_, true;
        for (;;) {
            if (!item(depth)) return false;
            blanks();
            if (at_ < t_.size() && t_[at_] == close) return ++at_, true;
            if (at_ >= t_.size() || t_[at_] != ',') return false;
            ++at_;
        }
    }
    bool value(size_t depth) {
        blanks();
        if (at_ >= t_.size() || depth > kJSONMaxDepth) return false;
        switch (t_[at_]) {
        case '{':
            return items('}', depth, [&](size_t d) {
                blanks();
                if (at_ >= t_.size() || t_[at_] != '"' || !string()) return false;
                blanks();
                if (at_ >= t_.size() || t_[at_] != ':') return false;
                ++at_;
                return value(d + 1);
            });
        case '[': return items(']', depth, [&](size_t d) { return value(d + 1); });
        case '"': return string();
        case 't': return literal("true");
        case 'f': return literal("false");
        case 'n': return literal("null");
        default: return number();
        }
    }

    std::string_view t_;
    size_t at_ = 0;
};

} // namespace

std::optional<std::string> locateSyntaxError(std::string_view text) {
    std::optional<size_t> at = SyntaxCheck(text).run();
    if (!at) return std::nullopt;
    size_t line = 1, column = 1;
    for (size_t i = 0; i < *at && i < text.size(); ++i) {
        if (text[i] == '\n') ++line, column = 1;
        else if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) ++column;
    }
    return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

Dictionary loadSeed(const std::string& text) {
    Value parsed;
    try {
        parsed = parseJSON(text);
    } catch (const JSONError& e) {
        std::optional<std::string> where = locateSyntaxError(text);
        throw std::invalid_argument((where ? *where + ": " : std::string()) + e.what());
    }
    if (!parsed.isDictionary()) throw std::invalid_argument(std::string("the seed is ") + parsed.kindName() + ", not a JSON object");
    // The state lives on the heap, node by node: values the routes derive from
    // it and store back into it would otherwise hold the seed's reply arena
    // from inside that arena, a cycle that is never freed.
    Dictionary seed = parsed.asDictionary().detached();
    if (!seed.contains("numbers")) seed.set("numbers", generatedNumbers());
    if (auto goods = seed.optArray("goods")) generateUnits(*goods);
    return seed;
}

} // namespace veltrane::sandbox
