// The wrappers of the library and of the host kit.
#include "benchmarks/Wrapping.h"

#include "benchmarks/Provider.h"
#include "hostkit/Store.h"
#include "nst/NstMapiFolder.h"
#include "nst/NstMapiTable.h"
#include "nst/NstMsgStore.h"
#include "nst/ReadOnlyFolder.h"
#include "nst/ReadOnlyMessage.h"

using namespace Quillon::Nst;

namespace Benchmarks
{
namespace
{

KivNstHostKit::ArchivePointer MakeArchive(IMsgStore* store, IMAPISupport* support)
{
    return std::make_shared<const KivNstHostKit::CArchive>(
        KivNstHostKit::ArchiveSettings(), ATL::CComQIPtr<IMsgStore>(store), ATL::CComQIPtr<IMAPISupport>(support));
}

/// A host's archive without settings of its own, which lives as long as the program.
const KivNstHostKit::ArchivePointer& GetArchive()
{
    static const auto& archive = *new KivNstHostKit::ArchivePointer(MakeArchive(MakeStore(), MakeSupport()));
    return archive;
}

IMAPIFolder* MakeKitFolder(IMAPIFolder* folder, IMsgStore* archive, IMAPISupport*)
{
    return KivNstHostKit::MakeFolder(GetArchive(), ATL::CComQIPtr<IMAPIFolder>(folder),
                                     ATL::CComQIPtr<IMsgStore>(archive))
        .Detach();
}

} // namespace

const Wrapping libraryWrapping = {
    "",
    [](IMsgStore* store, IMAPISupport* support) -> IMsgStore* { return new CNstMsgStore(store, support); },
    [](IMAPIFolder* folder, IMsgStore* archive, IMAPISupport* support) -> IMAPIFolder*
    { return new CNstMapiFolder(folder, archive, support); },
    [](IMAPITable* table) -> IMAPITable* { return new CNstMapiTable(table); },
    [](IMAPIFolder* folder) -> IMAPIFolder* { return new CReadOnlyFolder(folder, nullptr, nullptr); },
    [](IMessage* message) -> IMessage* { return new CReadOnlyMessage(message); },
};

const Wrapping kitWrapping = {
    "host kit: ",
    [](IMsgStore* store, IMAPISupport* support)
    { return KivNstHostKit::MakeStore(MakeArchive(store, support)).Detach(); },
    MakeKitFolder,
    [](IMAPITable* table)
    { return KivNstHostKit::MakeTable(GetArchive(), ATL::CComQIPtr<IMAPITable>(table), MAPI_MESSAGE).Detach(); },
    [](IMAPIFolder* folder) { return MakeKitFolder(folder, nullptr, nullptr); },
    [](IMessage* message)
    { return KivNstHostKit::MakeMessage(GetArchive(), ATL::CComQIPtr<IMessage>(message)).Detach(); },
};

} // namespace Benchmarks
