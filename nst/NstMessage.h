// CNstMessage: the wrapper of the PST store's messages.
#pragma once

#include "support/ComPtr.h"
#include "support/Export.h"

namespace Quillon::Nst
{

/// Wraps IMessage. All calls are passed through; GetProps lets a derived class rewrite the values. What the message
/// gives (attachments, tables, opened properties) is handed back unwrapped. Any thread; the count starts at 1.
class KIVNST_API CNstMessage : public IMessage
{
public:
    KIVNST_OWN_HEAP

    /// Takes a reference on `message`.
    explicit CNstMessage(IMessage* message);
    CNstMessage(const CNstMessage&) = delete;
    CNstMessage& operator=(const CNstMessage&) = delete;

    MAPI_IUNKNOWN_METHODS(override)
    MAPI_IMAPIPROP_METHODS(override)
    MAPI_IMESSAGE_METHODS(override)

    virtual ~CNstMessage();

protected:
    /// Rewrites, in place, the values that GetProps gives a client. The library's own does nothing.
    virtual void OverrideMessageProperties(SPropValue* values, ULONG count);

    /// The PST message, for derived classes that pass calls through.
    ATL::CComQIPtr<IMessage> m_message;

private:
    ULONG m_references;
};

} // namespace Quillon::Nst
