// Profiles, and the message services in them, by MAPI's administration interfaces.
#pragma once

#include "common/MsgServiceAdmin2.h"
#include "common/PropValue.h"
#include "tools/browser/Mapi.h"

#include <optional>
#include <vector>

namespace Browser
{
/// A profile as the profile table shows it.
struct ProfileRow
{
    std::wstring name;
    bool isDefault = false;
};

/// All profiles. Throws `Common::Failure`, as all of these.
std::vector<ProfileRow> ListProfiles(const Mapi& mapi);
/// The name itself, or where it is empty that of the default profile; empty when there is none.
std::wstring ProfileOrDefault(const Mapi& mapi, const std::wstring& name);
bool ProfileExists(const Mapi& mapi, const std::wstring& name);
/// Makes an empty profile.
void CreateProfile(const Mapi& mapi, const std::wstring& name);
/// Removes a profile with its services; one that is in use is gone when its last session ends.
void DeleteProfile(const Mapi& mapi, const std::wstring& name);

/// A message service as the service table shows it.
struct ServiceRow
{
    MAPIUID uid{};
    std::wstring name;
    std::wstring displayName;
    std::wstring dllName;
    std::wstring entryName;
};

/// The message services of a profile.
class Services
{
public:
    Services(const Mapi& mapi, const std::wstring& profile);

    std::vector<ServiceRow> List() const;
    /// The service of that name, of several the first.
    std::optional<ServiceRow> Find(const std::wstring& name) const;
    /// Adds a service of MAPISVC.INF.
    MAPIUID Create(const std::wstring& name);
    /// Gives a service its values without asking anybody.
    void Configure(const ServiceRow& service, const std::vector<Common::PropValue>& values);
    void Delete(const MAPIUID& uid);
    /// Properties of the service's section, an error entry for each that it does not have.
    std::vector<Common::PropValue> Read(const ServiceRow& service, const std::vector<ULONG>& tags) const;

private:
    Common::MapiMemory m_memory;
    std::wstring m_profile;
    Common::ComPtr<IMsgServiceAdmin> m_admin;
};

/// Why a message service of that name cannot be used, as far as MAPISVC.INF and the files tell: a sentence, or nothing.
std::wstring ExplainService(const std::wstring& name);

/// A profile that nobody else sees. It is to be deleted as soon as there is a session with it, and then lives as long
/// as that. What a program that was ended before has left is removed by the next one.
class TemporaryProfile
{
public:
    explicit TemporaryProfile(std::shared_ptr<const Mapi> mapi);
    ~TemporaryProfile();
    TemporaryProfile(const TemporaryProfile&) = delete;
    TemporaryProfile& operator=(const TemporaryProfile&) = delete;

    const std::wstring& Name() const noexcept { return m_name; }
    /// Once.
    void Delete();

private:
    std::shared_ptr<const Mapi> m_mapi;
    std::wstring m_name;
    bool m_exists = false;
};
} // namespace Browser
