// The main of the testbed's tests.
#include "tests/common/MapiClient.h"
#include "tests/testbed/Environment.h"
#include "tests/testbed/OtherProcess.h"

#include "common/Text.h"

#include <cstdlib>
#include <cstring>

namespace
{
// Opens a profile's section for writing, says so, and holds it until the process is ended.
int HoldSection(const std::wstring& profile)
{
    const Tests::MapiClient client;
    const auto admin = client.Admin();
    Common::ComPtr<IMsgServiceAdmin> services;
    Common::ComPtr<IProfSect> section;
    MAPIUID uid = Tests::heldSection;
    if (FAILED(admin->AdminServices(reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(profile.c_str())), nullptr, 0,
                                    MAPI_UNICODE, services.Put())) ||
        FAILED(services->OpenProfileSection(&uid, nullptr, MAPI_MODIFY, section.Put())))
        return 1;
    SetEvent(OpenEventW(EVENT_MODIFY_STATE, FALSE, Tests::heldEvent));
    Sleep(INFINITE);
    return 0;
}

// Leaves a client, a session and a store behind.
int LeaveMapi(const std::wstring& profile, ULONG flags)
{
    const auto& client = *new Tests::MapiClient(flags);
    const auto& session = *new Tests::TestSession(client, profile);
    return session.OpenStore().Detach() ? 0 : 1;
}
} // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], Tests::holdArgument) == 0)
        return HoldSection(Common::WideFromUtf8(argv[2]));
    if (argc == 4 && std::strcmp(argv[1], Tests::leaveArgument) == 0)
        return LeaveMapi(Common::WideFromUtf8(argv[2]), std::strtoul(argv[3], nullptr, 10));
    testing::InitGoogleTest(&argc, argv);
    // A death test's child starts anew, with a heap that no other test has touched.
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    Tests::InstallLeakListener();
    return RUN_ALL_TESTS();
}
