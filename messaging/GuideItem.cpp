// GuideItem's reading and the company's tiles.
#include "veltrane/messaging/GuideItem.h"

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/RequestPattern.h"

namespace veltrane {

bool showsBanner(const Dictionary& tile) { return tile.intValue("isbar") == 1; }

GuideItem::GuideItem(const Dictionary& d)
    : Name_(d.optValue("name")),
      Icon_(d.optValue("icon")),
      Color_(d.optValue("color")),
      Select_(d.optValue("select")),
      Link_(d.optValue("link")),
      ShowBanner_(showsBanner(d)) {}

void GuideItem::loadWithCompany(int32_t companyID, ResultCallback<std::vector<GuideItem>> callback) {
    reply::get("getAppsID", Dictionary{{"CompanyID", NSBoxInt(companyID)}},
               reply::convertListOrFail<GuideItem>(std::move(callback), "数据格式错误，请稍后重试", reply::Guard::off));
}

} // namespace veltrane
