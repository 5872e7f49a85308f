// What type_info needs in each module: its virtual table, to which the compiler's type descriptors point, and the list
// of the readable names that vcruntime140.dll made.
#include <vcruntime_typeinfo.h>

__type_info_node __type_info_root_node = {};

type_info::~type_info() noexcept = default;

extern "C"
{
    // No object of type_info is ever made or destroyed by code, so the compiler emits no virtual table for it; the type
    // descriptors want its address, and nobody reads what stands there.
    extern const void* const typeInfoTable[2] __asm__("??_7type_info@@6B@");
    const void* const typeInfoTable[2] = {nullptr, nullptr};
}
