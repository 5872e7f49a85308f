// What a host meets first when something is not as it should be, looked for on a machine.
#pragma once

#include "tools/setup/Commands.h"

#include <optional>
#include <string>
#include <vector>

namespace Setup
{

/// What one check found.
struct Finding
{
    enum class State
    {
        Fine,
        Wrong,
        /// It could not be looked for, since something else is missing.
        NotLookedFor
    };
    /// "mapi", "pst-provider", "mapisvc", "registration", "module", "name", "bitness", "abi", "runtime", "profile",
    /// "store", "root".
    std::wstring check;
    State state = State::Fine;
    /// A sentence, and for what is wrong the next step as another one.
    std::wstring found;
    std::wstring next;
};

/// What is found of the machine, and the services that there are to go on with.
struct MachineFindings
{
    std::vector<Finding> findings;
    std::vector<std::wstring> services;
    bool hasMapi = false;
};

/// Looks at the mail client's MAPI, its PST provider, MAPISVC.INF and the modules of the archive stores in it, or of
/// the one that is named. Loads the PST provider; a host's module only in another process.
MachineFindings ExamineMachine(const std::optional<std::wstring>& inf, const std::wstring& service);

/// The findings as the command tells them; its code is Faulty where one is wrong.
Outcome DescribeFindings(const std::vector<Finding>& findings);

} // namespace Setup
