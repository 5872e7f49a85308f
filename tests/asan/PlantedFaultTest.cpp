// A fault planted in each layer: what AddressSanitizer says of it shows that the layer is watched. The layer's own code
// is given memory that was freed, or less of it than it is told, and touches it.
#include "common/PropValue.h"
#include "mapi/SPropValueVector.h"
#include "nst/NstMsgStore.h"
#include "support/Binary.h"
#include "tests/common/InertObjects.h"
#include "tests/common/MapiModule.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

using namespace Quillon;

namespace
{

/// The exit code that reports are given in the processes of these tests.
constexpr int reported = 77;

/// Reports of these processes go to their own output, where the test reads them, and not to where the run collects
/// those that nobody planted.
class PlantedFaultDeathTest : public testing::Test
{
protected:
    void SetUp() override
    {
        const DWORD length = GetEnvironmentVariableA(options, nullptr, 0);
        m_before.resize(length);
        m_before.resize(GetEnvironmentVariableA(options, m_before.data(), length));
        SetEnvironmentVariableA(options, ("exitcode=" + std::to_string(reported)).c_str());
    }

    void TearDown() override { SetEnvironmentVariableA(options, m_before.empty() ? nullptr : m_before.c_str()); }

private:
    static constexpr auto options = "ASAN_OPTIONS";
    std::string m_before;
};

/// A report of this kind with a line of this file in its stack.
testing::Matcher<const std::string&> Reports(const std::string& kind, const std::string& file)
{
    return testing::AllOf(testing::HasSubstr("ERROR: AddressSanitizer: " + kind + " on address"),
                          testing::HasSubstr(file + ":"));
}

/// A store that is never called.
class Store : public Tests::InertStore
{
public:
    STDMETHODIMP QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
};

/// Memory of a `T` that was freed.
template <class T>
T* Freed()
{
    // The compiler would else see the misuse.
    T* volatile block = static_cast<T*>(std::calloc(1, sizeof(T)));
    std::free(block);
    return block;
}

} // namespace

TEST_F(PlantedFaultDeathTest, IsReportedInSupport)
{
    EXPECT_EXIT(
        {
            auto* const bytes = static_cast<BYTE*>(std::calloc(10, 1));
            const Binary copy(bytes, 11);
        },
        testing::ExitedWithCode(reported), Reports("heap-buffer-overflow", "Binary.cpp"));
}

TEST_F(PlantedFaultDeathTest, IsReportedInMapi)
{
    EXPECT_EXIT(Mapi::SPropValueVector().AddProperty(*Freed<SPropValue>()), testing::ExitedWithCode(reported),
                Reports("heap-use-after-free", "SPropValueVector.cpp"));
}

TEST_F(PlantedFaultDeathTest, IsReportedInNst)
{
    EXPECT_EXIT(
        {
            Store store;
            Nst::CNstMsgStore(&store, nullptr).SetProps(1, Freed<SPropValue>(), nullptr);
        },
        testing::ExitedWithCode(reported), Reports("heap-use-after-free", "NstMsgStore.cpp"));
}

TEST_F(PlantedFaultDeathTest, IsReportedInTheHost)
{
    EXPECT_EXIT(
        {
            const HMODULE host = LoadLibraryW(L"ArchiveHost32.dll");
            const auto serviceEntry =
                reinterpret_cast<MSGSERVICEENTRY*>(reinterpret_cast<void*>(GetProcAddress(host, "ServiceEntry")));
            auto* const values = static_cast<SPropValue*>(std::calloc(2, sizeof(SPropValue)));
            serviceEntry(host, nullptr, nullptr, 0, 0, MSG_SERVICE_CONFIGURE, 3, values, nullptr, nullptr);
        },
        testing::ExitedWithCode(reported), Reports("heap-buffer-overflow", "ArchiveHost.cpp"));
}

TEST_F(PlantedFaultDeathTest, IsReportedInTheTestbed)
{
    EXPECT_EXIT(Common::PropValue::From(*Freed<SPropValue>()), testing::ExitedWithCode(reported),
                Reports("heap-use-after-free", "PropValue.cpp"));
}

/// MAPI blocks come out of a pool of the testbed's own that keeps freed ones.
TEST_F(PlantedFaultDeathTest, IsReportedForAFreedMapiBlock)
{
    EXPECT_EXIT(
        {
            const Tests::MapiModule& mapi = Tests::MapiModule::Get();
            auto* const value = static_cast<SPropValue*>(mapi.Allocate(sizeof(SPropValue)));
            mapi.Free(value);
            Mapi::SPropValueVector().AddProperty(*value);
        },
        testing::ExitedWithCode(reported), Reports("use-after-poison", "SPropValueVector.cpp"));
}

TEST_F(PlantedFaultDeathTest, IsReportedBehindAMapiBlock)
{
    EXPECT_EXIT(
        {
            void* const bytes = Tests::MapiModule::Get().Allocate(10);
            const Binary copy(static_cast<BYTE*>(bytes), 11);
        },
        testing::ExitedWithCode(reported), Reports("use-after-poison", "Binary.cpp"));
}

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    return RUN_ALL_TESTS();
}
