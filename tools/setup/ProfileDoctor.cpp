// Examining a profile.
#include "tools/setup/ProfileDoctor.h"

#include "common/StoreEntryId.h"
#include "tools/browser/ArchiveSession.h"
#include "tools/common/Program.h"
#include "tools/setup/Text.h"

namespace Setup
{
namespace
{

using State = Finding::State;

/// The store of a profile's service, opened as it is.
class OpenedStore : public Browser::StoreSession
{
public:
    OpenedStore(std::shared_ptr<const Browser::Mapi> mapi, const std::wstring& profile,
                const Browser::ServiceRow& service)
        : StoreSession(std::move(mapi))
    {
        Begin(profile);
        Open(service, MAPI_BEST_ACCESS);
    }
};

bool HasRoot(const Browser::StoreSession& store)
{
    try
    {
        return !Browser::TopOfStore(store.Memory(), store.Store()).empty();
    }
    catch (const Common::Failure&)
    {
        return false;
    }
}

void ExamineStore(const std::shared_ptr<const Browser::Mapi>& mapi, const std::wstring& profile,
                  const Browser::Services& services, const Browser::ServiceRow& service, std::vector<Finding>& findings)
{
    const std::wstring name = L"\"" + service.name + L"\"";
    std::wstring path;
    for (const Common::PropValue& value :
         services.Read(service, {Common::Tags::offlineStorePathW, Common::Tags::pstPathW}))
    {
        if (path.empty())
            path = value.AsText();
    }
    if (path.empty())
    {
        findings.push_back({L"store", State::Wrong,
                            L"The service " + name + L" of the profile \"" + profile +
                                L"\" names no file: its store is not configured.",
                            L"Configure it with a path: in the product, or \"archive-browser --profile \"" + profile +
                                L"\" --service " + service.name + L" configure FILE.pst\"."});
        return;
    }
    try
    {
        const OpenedStore store(mapi, profile, service);
        findings.push_back(
            {L"store", State::Fine, L"The store of " + name + L" opens; its file is \"" + path + L"\".", {}});
        if (!HasRoot(store))
        {
            findings.push_back({L"root", State::Wrong, L"The store of " + name + L" has no archive root.",
                                L"Its host has to call ConfigureNstSubtreeEntryId where it makes the store; the host "
                                L"kit does."});
            return;
        }
        findings.push_back({L"root", State::Fine, L"The archive root of " + name + L" is the top of its store.", {}});
    }
    catch (const Common::Failure& failure)
    {
        findings.push_back({L"store", State::Wrong, failure.Text(),
                            L"\"archive-setup --verbose doctor\" shows the log, with the cause."});
        findings.push_back({L"root", State::NotLookedFor, L"The store does not open.", {}});
    }
}

} // namespace

std::vector<Finding> ExamineProfile(const std::wstring& named, const std::vector<std::wstring>& services, bool isNamed)
{
    std::vector<Finding> findings;
    try
    {
        const Tools::ComApartment com;
        Common::Check(com.Result(), L"COM cannot be used.");
        const auto mapi = Browser::Mapi::Start();
        const std::wstring profile = Browser::ProfileOrDefault(*mapi, named);
        if (profile.empty())
        {
            findings.push_back(
                {L"profile", State::NotLookedFor, L"There is no default profile; --profile names another one.", {}});
            return findings;
        }
        if (!Browser::ProfileExists(*mapi, profile))
        {
            findings.push_back({L"profile", State::Wrong, L"There is no profile \"" + profile + L"\".",
                                L"\"archive-browser profiles\" lists those that there are."});
            return findings;
        }
        const Browser::Services present(*mapi, profile);
        std::wstring absent;
        std::size_t count = 0;
        for (const std::wstring& name : services)
        {
            const auto service = present.Find(name);
            if (!service)
            {
                absent += (absent.empty() ? L"\"" : L", \"") + name + L"\"";
                continue;
            }
            ++count;
            findings.push_back(
                {L"profile", State::Fine, L"The profile \"" + profile + L"\" has the service \"" + name + L"\".", {}});
            ExamineStore(mapi, profile, present, *service, findings);
        }
        if (count == 0 || (isNamed && !absent.empty()))
        {
            findings.push_back({L"profile", State::Wrong,
                                L"The profile \"" + profile + L"\" lacks the service " + absent + L".",
                                L"Add it in the mail client's account settings, or by \"archive-browser --profile \"" +
                                    profile + L"\" --service " + services.front() + L" configure FILE.pst\"."});
        }
    }
    catch (const Common::Failure& failure)
    {
        findings.push_back({L"mapi", State::Wrong, failure.Text(), L"Start the mail client once, or repair it."});
    }
    return findings;
}

} // namespace Setup
