// IMessage and IAttach over an open message.
#pragma once

#include "testbed/pst/AttachmentState.h"
#include "testbed/pst/PropertyObject.h"

namespace Testbed::Pst
{
ComPtr<IMessage> MakeMessage(const std::shared_ptr<MessageState>& state);
ComPtr<IAttach> MakeAttachment(const std::shared_ptr<AttachmentState>& state);

/// Whether a caller's interface identifier (null means the object's own interface) is one of `iids`. Throws
/// MAPI_E_INTERFACE_NOT_SUPPORTED when it is not.
void RequireInterface(LPCIID iid, std::initializer_list<const IID*> iids);
} // namespace Testbed::Pst
