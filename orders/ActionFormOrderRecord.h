/// @file
/// One step in an action-form order's processing history: when, by whom, from
/// which company, with which remark and status. Read live from the server's
/// very dictionary.
#pragma once

#include <optional>
#include <string>

#include "veltrane/foundation/Date.h"
#include "veltrane/foundation/RawRecord.h"

namespace veltrane {

/// One step in an action-form order's processing history: when, by whom, from which company,
/// with which remark and status.
class ActionFormOrderRecord : public RawRecord {
public:
    /// Logs the dictionary, then keeps it itself.
    explicit ActionFormOrderRecord(const Dictionary& dictionary);

    /// Whole seconds of "CreateTime" (a fraction is dropped).
    Date createTime() const { return Date::dateWithTimeIntervalSince1970(static_cast<double>(raw_.optLong("CreateTime"))); }
    /// "Remarks", as text.
    std::optional<std::string> remarks() const { return text("Remarks"); }
    /// "UserName", as text.
    std::optional<std::string> userName() const { return text("UserName"); }
    /// "CompanyName", as text.
    std::optional<std::string> companyName() const { return text("CompanyName"); }
    /// The name of the step's "Status": 0 "回收站", 1 "待处理", 2 "转社区",
    /// 3 "退回", 4 "已完结", 5 "转收银", 6 "退回(社区)", 7 "无资源", 8 "竣工",
    /// 9 " " (one blank), 10 "销单"; "" for every other code.
    std::string statusName() const;
};

} // namespace veltrane
