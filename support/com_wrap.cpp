// The failure path of com_wrap, out of line.
#include "support/com_wrap.h"
#include "support/CallWrapping.h"
void Quillon::Detail::ThrowNullPointer()
{
    Throw(CComError(E_POINTER), L"Quillon::com_wrap");
}
