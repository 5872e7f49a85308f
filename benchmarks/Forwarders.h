// The smallest forwarders that can be written by hand: one virtual method each, one reference pair, nothing logged.
// Methods that no case calls are inert. Each is made with one reference and takes one on what it forwards to.
#pragma once

#include "support/MapiHeaders.h"

namespace Benchmarks
{

IMAPITable* ForwardTable(IMAPITable* table);
IMAPIFolder* ForwardFolder(IMAPIFolder* folder);
IMessage* ForwardMessage(IMessage* message);
IMsgStore* ForwardStore(IMsgStore* store);
IMAPISupport* ForwardSupport(IMAPISupport* support);

} // namespace Benchmarks
