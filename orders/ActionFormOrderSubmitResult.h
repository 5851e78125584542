/// @file
/// What the server answers to the submission of an action-form order: the new
/// order's identifiers, the path of its document and the agreements the
/// customer must be shown.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "veltrane/documents/Agreement.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// What the server answers to the submission of an action-form order: the new order's
/// identifiers, the path of its document and the agreements the customer must be shown.
class ActionFormOrderSubmitResult {
public:
    ActionFormOrderSubmitResult() = default;
    /// Copies "ID" and "RecID" (32-bit, sign-extended), "IsPreProcessAgreement"
    /// (equal to 1), "Path" and "SN" (text), and the agreements under "Data"
    /// (capital D), an element that is not an agreement dropped with its log line.
    explicit ActionFormOrderSubmitResult(const Dictionary& dictionary);

    /// "ID".
    ///@{
    long ID() const noexcept { return ID_; }
    void setID(long v) noexcept { ID_ = v; }
    ///@}
    /// "IsPreProcessAgreement".
    ///@{
    bool isPreProcessAgreement() const noexcept { return isPreProcessAgreement_; }
    void setIsPreProcessAgreement(bool v) noexcept { isPreProcessAgreement_ = v; }
    ///@}
    /// "Path".
    ///@{
    const std::optional<std::string>& path() const noexcept { return path_; }
    void setPath(std::optional<std::string> v) { path_ = std::move(v); }
    ///@}
    /// The receipt's identifier.
    ///@{
    long recID() const noexcept { return recID_; }
    void setRecID(long v) noexcept { recID_ = v; }
    ///@}
    /// "SN".
    ///@{
    const std::optional<std::string>& SN() const noexcept { return SN_; }
    void setSN(std::optional<std::string> v) { SN_ = std::move(v); }
    ///@}
    /// Empty when the reply has no "Data".
    const std::vector<Agreement>& agreements() const noexcept { return agreements_; }

private:
    long ID_ = 0;
    bool isPreProcessAgreement_ = false;
    std::optional<std::string> path_;
    long recID_ = 0;
    std::optional<std::string> SN_;
    std::vector<Agreement> agreements_;
};

} // namespace veltrane
