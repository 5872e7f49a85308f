// What an archive's properties differ in from the PST provider's, and why: what "diff" and "report" explain by.
#pragma once

#include "tools/browser/ArchiveSession.h"
#include "tools/browser/MapiTools.h"

#include <string>
#include <vector>

namespace Browser
{
/// What is compared.
enum class CompareKind
{
    Store,
    Folder,
    Message,
    Attachment,
    Row
};

/// "store", "folder", "message", "attachment", "table row".
const char* KindName(CompareKind kind) noexcept;

/// A property of an object before it is wrapped and behind the wrapper. The values belong to what was compared.
struct PropertyPair
{
    ULONG tag = PR_NULL;
    /// Null where the object does not have the property there.
    const Common::PropValue* before = nullptr;
    const Common::PropValue* after = nullptr;

    bool Same() const { return before && after && *before == *after; }
};

/// The properties of both, by their identifiers: in the order of the unwrapped object, then what only the wrapped one
/// has. What is paired has to outlive the result.
std::vector<PropertyPair> PairProperties(const ObjectProperties& before, const ObjectProperties& after);

/// The rules by which wrapped values follow from unwrapped ones, for one store.
class DifferenceRules
{
public:
    /// `archiveRoot` is what the store keeps under the library's own tag; empty where there is none.
    DifferenceRules(std::wstring pstModule, Common::Bytes archiveRoot, std::wstring hostModule,
                    const std::filesystem::path& file, const Setting& setting);

    /// The rule by which a wrapped value follows from the unwrapped one; empty when there is none, or when the value is
    /// not the one that it gives.
    std::string Explain(CompareKind kind, ULONG tag, const Common::PropValue& before,
                        const Common::PropValue& after) const;
    /// The same of a pair; what one of the two objects lacks, no rule explains.
    std::string Explain(CompareKind kind, const PropertyPair& pair) const;

private:
    bool IsStoreEntryIdPair(const Common::PropValue& before, const Common::PropValue& after) const;

    std::wstring m_pstModule;
    Common::Bytes m_archiveRoot;
    std::wstring m_hostModule;
    Setting m_setting;
    Common::Bytes m_storeEntryId;
};
} // namespace Browser
