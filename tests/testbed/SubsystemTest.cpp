// The MAPI subsystem as a client sees it, through mapi32.dll.
#include "tests/common/MapiClient.h"
#include "tests/testbed/Environment.h"
#include "tests/testbed/FakeProvider.h"

#include "common/StoreEntryId.h"
#include "common/Text.h"

using namespace Common;
using namespace Tests;

TEST(MapiRoad, OpensAStoreOfANewProfile)
{
    const MapiClient client;
    const TestProfile profile(client);
    const MAPIUID service = profile.AddPst(TempPath(L"road\\new.pst"));
    TestSession session(client, profile.Name());
    const auto store = session.OpenStore(&service);
    SizedSPropTagArray(1, tags) = {1, {PR_IPM_SUBTREE_ENTRYID}};
    ULONG count = 0;
    MapiBlock<SPropValue> values(client.Memory());
    ASSERT_EQ(store->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, values.Put()), S_OK);
    ULONG type = 0;
    ComPtr<IUnknown> folder;
    ASSERT_EQ(session.Object().OpenEntry(values->Value.bin.cb, reinterpret_cast<LPENTRYID>(values->Value.bin.lpb),
                                         nullptr, 0, &type, folder.Put()),
              S_OK);
    EXPECT_EQ(type, ULONG(MAPI_FOLDER));
}
