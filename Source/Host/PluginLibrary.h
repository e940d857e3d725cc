// SPDX-License-Identifier: MIT
// Loads a plug-in's shared library; nothing else in the tree does.
#pragma once

#include <string>

namespace QfHost {

// A descriptor that is closed with its owner. Below 0: none.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : m_Number(number) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept : m_Number(other.m_Number) { other.m_Number = -1; }
    Descriptor& operator=(Descriptor&& other) noexcept;
    int Number() const { return m_Number; }

private:
    int m_Number;
};

// A plug-in's file, opened and checked: a regular file with a whole library.
class PluginFile {
public:
    // Throws std::runtime_error with a line for the user.
    explicit PluginFile(const std::string& path);

    const std::string& Path() const { return m_Path; }
    const Descriptor& File() const { return m_File; }

private:
    void NeedWholeLibrary() const;

    std::string m_Path;
    Descriptor m_File;
};

// The loader's handle of the library itself, for dlsym and dlclose; all who load it in this process share it. Throws
// std::runtime_error with the loader's text, std::bad_alloc when it has no memory.
void* LoadLibrary(const PluginFile& file);

class PluginLibrary {
public:
    // The library itself, see LoadLibrary.
    enum class Shared {};
    // A copy of it with variables of its own.
    enum class Private {};

    // Throw std::runtime_error with the loader's text, std::bad_alloc when it has no memory.
    PluginLibrary(const PluginFile& file, Shared);
    PluginLibrary(const PluginFile& file, Private);
    ~PluginLibrary();
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    // Throws std::runtime_error when the library has no such name.
    template <class Target>
    void Find(Target& target, const char* name) const {
        target = reinterpret_cast<Target>(Needed(name));
    }

private:
    void* Needed(const char* name) const;

    Descriptor m_Copy; // open while loaded: this number is in the name by which the loader identifies it
    void* m_pLibrary;
};

} // namespace QfHost
