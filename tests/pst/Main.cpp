// Runs the tests; and, as another process of a test, opens a store, or writes into one until it is ended.
#include "tests/pst/PstStore.h"

#include <iostream>

namespace
{
// Saves message after message, each with its number and as many bytes of it, and says so. Never returns by itself.
int WriteForEver(const std::filesystem::path& path)
{
    using namespace Tests;
    PstStore store(LoadedMapi::Load(Location(L"KIVNST_MAIL_CLIENT") / L"olmapi32.dll"), path);
    const auto folder = store.Subtree();
    for (LONG number = 0;; ++number)
    {
        ComPtr<IMessage> message;
        Check(folder->CreateMessage(nullptr, 0, message.Put()), L"CreateMessage failed");
        const Bytes body(20000, static_cast<BYTE>(number));
        Check(store.Set(*message, {PropValue::String(PR_SUBJECT_W, std::to_wstring(number)),
                                   PropValue::Binary(PR_RTF_COMPRESSED, body), PropValue::Long(PR_IMPORTANCE, number)}),
              L"SetProps failed");
        Check(message->SaveChanges(0), L"SaveChanges failed");
    }
}

// The code with which a store opens, or does not.
int OpenOnce(const std::filesystem::path& path)
{
    using namespace Tests;
    try
    {
        PstStore store(LoadedMapi::Load(Location(L"KIVNST_MAIL_CLIENT") / L"olmapi32.dll"), path);
        return S_OK;
    }
    catch (const Failure& failure)
    {
        return failure.Result();
    }
}
} // namespace

// The C runtime calls it by its name.
int wmain(int argc, wchar_t** argv) // NOLINT(misc-use-internal-linkage)
{
    if (argc == 3 && std::wstring(argv[1]) == L"--open")
        return OpenOnce(argv[2]);
    if (argc == 3 && std::wstring(argv[1]) == L"--write-for-ever")
    {
        try
        {
            return WriteForEver(argv[2]);
        }
        catch (const std::exception& exception)
        {
            std::cerr << exception.what() << "\n";
            return 2;
        }
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
