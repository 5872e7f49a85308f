// Reading a module's file. Nothing in it is trusted: every place is checked against the file's size.
#include "tools/setup/ModuleFile.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace Setup
{
namespace
{

std::vector<char> ReadFileWhole(const std::wstring& path)
{
    const std::unique_ptr<void, decltype(&CloseHandle)> file(CreateFileW(path.c_str(), GENERIC_READ,
                                                                         FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                                                         OPEN_EXISTING, 0, nullptr),
                                                             &CloseHandle);
    LARGE_INTEGER size = {};
    if (file.get() == INVALID_HANDLE_VALUE || !GetFileSizeEx(file.get(), &size))
        throw NoModule("it cannot be read");
    constexpr LONGLONG largest = 1 << 30;
    if (size.QuadPart > largest)
        throw NoModule("it is too large");
    std::vector<char> bytes(static_cast<std::size_t>(size.QuadPart));
    DWORD count = 0;
    if (!ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) || count != bytes.size())
        throw NoModule("it cannot be read");
    return bytes;
}

class Reader
{
public:
    explicit Reader(const std::wstring& path) : m_bytes(ReadFileWhole(path)) {}

    ModuleFile Read()
    {
        if (m_bytes.size() < sizeof(IMAGE_DOS_HEADER) || At<WORD>(0) != IMAGE_DOS_SIGNATURE)
            throw NoModule("it does not begin as a module does");
        const std::size_t begin = static_cast<DWORD>(At<IMAGE_DOS_HEADER>(0).e_lfanew);
        if (At<DWORD>(begin) != IMAGE_NT_SIGNATURE)
            throw NoModule("it has no module's header");
        const auto header = At<IMAGE_FILE_HEADER>(begin + sizeof(DWORD));
        ModuleFile module;
        module.machine = header.Machine;
        module.isDll = (header.Characteristics & IMAGE_FILE_DLL) != 0;
        if (header.Machine != ownMachine)
            return module;

        const std::size_t optional = begin + sizeof(DWORD) + sizeof(header);
        const auto image = At<IMAGE_OPTIONAL_HEADER64>(optional);
        if (image.Magic != IMAGE_NT_OPTIONAL_HDR64_MAGIC)
            throw NoModule("its header is damaged");
        for (WORD index = 0; index < header.NumberOfSections; ++index)
        {
            m_sections.push_back(At<IMAGE_SECTION_HEADER>(optional + header.SizeOfOptionalHeader +
                                                          index * sizeof(IMAGE_SECTION_HEADER)));
            const IMAGE_SECTION_HEADER& section = m_sections.back();
            if (section.PointerToRawData > m_bytes.size() ||
                section.SizeOfRawData > m_bytes.size() - section.PointerToRawData)
                throw NoModule("it is cut short");
        }
        ReadExports(image.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT], module);
        ReadImports(image.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT], module);
        return module;
    }

private:
    template <class Value>
    Value At(std::size_t offset) const
    {
        if (offset > m_bytes.size() || sizeof(Value) > m_bytes.size() - offset)
            throw NoModule("it is cut short");
        Value value;
        std::memcpy(&value, m_bytes.data() + offset, sizeof(value));
        return value;
    }

    /// The place in the file of an address in the loaded module.
    std::size_t Find(std::size_t address) const
    {
        for (const IMAGE_SECTION_HEADER& section : m_sections)
            if (address >= section.VirtualAddress && address - section.VirtualAddress < section.SizeOfRawData)
                return address - section.VirtualAddress + section.PointerToRawData;
        throw NoModule("one of its tables is damaged");
    }

    template <class Value>
    Value Loaded(std::size_t address) const
    {
        return At<Value>(Find(address));
    }

    std::string Text(std::size_t address) const
    {
        const auto begin = m_bytes.begin() + static_cast<std::ptrdiff_t>(Find(address));
        const auto end = std::find(begin, m_bytes.end(), '\0');
        if (end == m_bytes.end())
            throw NoModule("one of its tables is damaged");
        return {begin, end};
    }

    void ReadExports(const IMAGE_DATA_DIRECTORY& directory, ModuleFile& module) const
    {
        if (directory.VirtualAddress == 0)
            return;
        const auto table = Loaded<IMAGE_EXPORT_DIRECTORY>(directory.VirtualAddress);
        for (std::size_t index = 0; index < table.NumberOfNames; ++index)
            module.exports.push_back(Text(Loaded<DWORD>(table.AddressOfNames + index * sizeof(DWORD))));
    }

    void ReadImports(const IMAGE_DATA_DIRECTORY& directory, ModuleFile& module) const
    {
        if (directory.VirtualAddress == 0)
            return;
        for (std::size_t address = directory.VirtualAddress;; address += sizeof(IMAGE_IMPORT_DESCRIPTOR))
        {
            const auto imported = Loaded<IMAGE_IMPORT_DESCRIPTOR>(address);
            if (imported.Name == 0)
                return;
            ImportedModule& needed = module.imports.emplace_back();
            needed.name = Text(imported.Name);
            std::size_t thunk = imported.OriginalFirstThunk ? imported.OriginalFirstThunk : imported.FirstThunk;
            for (; const auto value = Loaded<ULONGLONG>(thunk); thunk += sizeof(value))
                if ((value & IMAGE_ORDINAL_FLAG64) == 0)
                    needed.functions.push_back(Text(static_cast<DWORD>(value) + sizeof(WORD)));
        }
    }

    const std::vector<char> m_bytes;
    std::vector<IMAGE_SECTION_HEADER> m_sections;
};

} // namespace

ModuleFile ReadModule(const std::wstring& path)
{
    return Reader(path).Read();
}

} // namespace Setup
