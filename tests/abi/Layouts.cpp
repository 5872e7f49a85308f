// Every exported class with a layout, so that the compiler prints it; scripts/abi-layouts reads that. Of a class with
// virtual functions a derived one stands here, as a host writes it: its table is the one that is printed.
#include "mapi/SPropValueVector.h"
#include "nst/KivNstCore.h"
#include "nst/NstAttach.h"
#include "nst/NstMapiFolder.h"
#include "nst/NstMapiSupport.h"
#include "nst/NstMapiTable.h"
#include "nst/NstMessage.h"
#include "nst/NstMessageService.h"
#include "nst/NstMsLogon.h"
#include "nst/NstMsProvider.h"
#include "nst/NstMsgStore.h"
#include "nst/ReadOnlyFolder.h"
#include "nst/ReadOnlyMessage.h"
#include "support/Binary.h"
#include "support/DateTimeSpan.h"
#include "support/Exceptions.h"
#include "support/MapiErrors.h"
#include "support/StringW.h"

using namespace Quillon;
using namespace Quillon::Nst;

namespace Layouts
{

template <class Class>
struct Of : Class
{
    using Class::Class;
    ~Of() override;
};

template <class Class>
Of<Class>::~Of() = default;

template struct Of<CNstMsProvider>;
template struct Of<CNstMsLogon>;
template struct Of<CNstMsgStore>;
template struct Of<CNstMapiFolder>;
template struct Of<CReadOnlyFolder>;
template struct Of<CNstMapiTable>;
template struct Of<CNstMessage>;
template struct Of<CReadOnlyMessage>;
template struct Of<CNstAttach>;
template struct Of<CNstMapiSupport>;
template struct Of<CComError>;
template struct Of<CWinError>;
template struct Of<CRuntimeError>;
template struct Of<Mapi::CMapiError>;
template struct Of<Mapi::ExtendedMapiError>;

/// A service has operations that are a host's own.
struct Service : CNstMessageService
{
    Service();
    StringW GetProviderDllName() override;
    ATL::CComQIPtr<IMSProvider> CreateMsProvider(const ATL::CComQIPtr<IMSProvider>& pstProvider) override;
};

Service::Service() = default;

/// Has the layouts of classes made that nothing derives from.
template <class... Classes>
struct Complete
{
    static_assert(((sizeof(Classes) > 0) && ...));
};

template struct Complete<StringW, StringA, Binary, Value, DateTimeSpan, CException, Mapi::SPropValueVector>;

} // namespace Layouts
