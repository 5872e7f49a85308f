// The part of "doctor" that asks MAPI.
#pragma once

#include "tools/setup/Doctor.h"

namespace Setup
{

/// Looks for the services in a profile, or in the default one where the name is empty, and opens their stores as a mail
/// client would. With `isNamed` the one service has to be there; otherwise one of them.
std::vector<Finding> ExamineProfile(const std::wstring& profile, const std::vector<std::wstring>& services,
                                    bool isNamed);

} // namespace Setup
