#pragma once
// Where the program lives and where a user's settings may go.
#include <cstdint>
#include <filesystem>
#include <optional>

namespace tavora {

// The folder of the running executable.
std::filesystem::path ProgramFolder();
// The user's roaming application-data folder (on other systems the
// configuration folder), or nothing when the system does not say.
std::optional<std::filesystem::path> RoamingAppDataFolder();
// True when a new file can be made in `folder`: creates a temporary
// ".kztest<process id>" file there and removes it again.
bool FolderIsWritable(const std::filesystem::path& folder);
uint32_t CurrentProcessId();

}  // namespace tavora

namespace tavora {

// The machine's physical memory in bytes, or 0 when unknown. Readers refuse
// documents that could never fit, rather than ending in the out-of-memory exit.
uint64_t PhysicalMemoryBytes();

}  // namespace tavora
