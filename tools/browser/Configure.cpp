// The commands about profiles: "profiles", "services", "stores", "configure" and "remove".
#include "common/Boundary.h"
#include "tools/browser/Commands.h"
#include "tools/browser/Console.h"

#include <system_error>

using namespace Common;

namespace Browser
{
namespace
{
// The profile that the options mean, which has to be there.
std::wstring RequireProfile(const Options& options)
{
    const std::wstring name = ProfileOrDefault(*options.mapi, options.place.profile);
    if (name.empty())
        Fail(MAPI_E_NOT_FOUND, L"There is no default profile; --profile names another one.");
    if (!ProfileExists(*options.mapi, name))
    {
        Fail(MAPI_E_NOT_FOUND,
             L"There is no profile \"" + name + L"\"; \"archive-browser profiles\" lists those that there are.");
    }
    return name;
}
} // namespace

int RunProfiles(const Options& options)
{
    const auto profiles = ListProfiles(*options.mapi);
    if (options.json)
    {
        Json list = Json::array();
        for (const ProfileRow& row : profiles)
            list.push_back({{"name", Utf8(row.name)}, {"default", row.isDefault}});
        PrintLine(Json{{"profiles", std::move(list)}}.dump(2));
        return exitOk;
    }
    TextTable table({{"profile"}, {"default"}});
    for (const ProfileRow& row : profiles)
        table.Add({Utf8(row.name), row.isDefault ? "yes" : ""});
    table.Print();
    PrintLine();
    PrintLine(Count(profiles.size(), "profile", "profiles"));
    return exitOk;
}

int RunServices(const Options& options)
{
    const auto services = Services(*options.mapi, RequireProfile(options)).List();
    if (options.json)
    {
        Json list = Json::array();
        for (const ServiceRow& row : services)
        {
            list.push_back({{"service", Utf8(row.name)},
                            {"displayName", Utf8(row.displayName)},
                            {"dll", Utf8(row.dllName)},
                            {"entry", Utf8(row.entryName)},
                            {"uid", Utf8(HexText(&row.uid, sizeof(row.uid)))}});
        }
        PrintLine(Json{{"services", std::move(list)}}.dump(2));
        return exitOk;
    }
    TextTable table({{"service"}, {"shown as"}, {"DLL"}, {"entry point"}});
    for (const ServiceRow& row : services)
        table.Add({Utf8(row.name), Utf8(row.displayName), Utf8(row.dllName), Utf8(row.entryName)});
    table.Print();
    PrintLine();
    PrintLine(Count(services.size(), "message service", "message services"));
    return exitOk;
}

int RunStores(const Options& options)
{
    const ProfileSession session(options.mapi, RequireProfile(options));
    const auto stores = ListStores(session.Memory(), session.Session());
    if (options.json)
    {
        Json list = Json::array();
        for (const StoreRow& row : stores)
        {
            list.push_back({{"store", Utf8(row.name)},
                            {"provider", Utf8(row.provider)},
                            {"default", row.isDefault},
                            {"serviceUid", Utf8(HexText(row.service.data(), row.service.size()))},
                            {"entryId", Utf8(HexText(row.entryId.data(), row.entryId.size()))}});
        }
        PrintLine(Json{{"stores", std::move(list)}}.dump(2));
        return exitOk;
    }
    TextTable table({{"store"}, {"provider"}, {"default"}});
    for (const StoreRow& row : stores)
        table.Add({Utf8(row.name), Utf8(row.provider), row.isDefault ? "yes" : ""});
    table.Print();
    PrintLine();
    PrintLine(Count(stores.size(), "store", "stores"));
    return exitOk;
}

int RunConfigure(const Options& options, const std::filesystem::path& archive)
{
    std::error_code error;
    const auto folder = std::filesystem::absolute(archive).parent_path();
    if (!std::filesystem::is_directory(folder, error))
        Fail(MAPI_E_NOT_FOUND, L"There is no folder \"" + folder.wstring() + L"\" for an archive to lie in.");
    ArchiveSession session(options.mapi, options.place);
    session.Configure(archive, options.setting);
    Setting setting = options.setting;
    setting.asIs = !session.HasSettings();
    const std::string path = Utf8(session.ArchivePath().wstring());
    const std::string profile = Utf8(session.Profile());
    PrintLine(options.json
                  ? Json{{"profile", profile}, {"archive", path}, {"setting", setting.Name()}}.dump(2)
                  : "The archive of the profile \"" + profile + "\" is " + path + " (" + setting.Name() + ").");
    return exitOk;
}

int RunRemove(const Options& options)
{
    const std::wstring profile = RequireProfile(options);
    bool empty = false;
    {
        Services services(*options.mapi, profile);
        const auto service = services.Find(options.place.service);
        if (!service)
        {
            Fail(MAPI_E_NOT_FOUND,
                 L"The profile \"" + profile + L"\" has no message service \"" + options.place.service + L"\".");
        }
        services.Delete(service->uid);
        empty = services.List().empty();
    }
    if (empty)
        DeleteProfile(*options.mapi, profile);
    PrintLine(
        options.json
            ? Json{{"profile", Utf8(profile)}, {"service", Utf8(options.place.service)}, {"profileRemoved", empty}}
                  .dump(2)
            : "The message service \"" + Utf8(options.place.service) + "\" is no longer in the profile \"" +
                  Utf8(profile) + "\"" + (empty ? ", which was empty then and is removed." : "."));
    return exitOk;
}
} // namespace Browser
