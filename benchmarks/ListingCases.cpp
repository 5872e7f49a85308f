// All rows of a folder, as a mail client reads them.
#include "benchmarks/Cases.h"
#include "benchmarks/Forwarders.h"
#include "benchmarks/Provider.h"

namespace Benchmarks
{

void AddListingCases(const Wrapping& wrapping)
{
    for (const ULONG rows : {100, 10000, 1000000})
    {
        IMAPITable* const table = MakeTable(rows);
        AddCase(
            wrapping.prefix + ("listing/" + std::to_string(rows)) + " rows",
            Objects<IMAPITable>{table, ForwardTable(table), wrapping.table(table)},
            [](IMAPITable* object)
            {
                const LPFREEBUFFER freeBuffer = GetMapi().freeBuffer;
                object->SeekRow(BOOKMARK_BEGINNING, 0, nullptr);
                while (true)
                {
                    SRowSet* set = nullptr;
                    object->QueryRows(50, 0, &set);
                    const ULONG given = set->cRows;
                    for (ULONG row = 0; row < given; ++row)
                        freeBuffer(set->aRow[row].lpProps);
                    freeBuffer(set);
                    if (given == 0)
                        break;
                }
            },
            Counting::Off);
    }
}

} // namespace Benchmarks
