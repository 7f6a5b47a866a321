#pragma once

#include <string>

// Temporary files that must not outlive the process, such as render swap
// files. A registered file is deleted when the process exits through exit()
// or a return from main, if its owner has not deleted it before.
//
// Each owner registers at most one file; registering another replaces it, and
// registering an empty name clears the owner's registration. Only the process
// that registered a file deletes it: a forked child that exits leaves its
// parent's files alone.
void registerTmpFileCache(const void* owner, const std::string& path);

// Deletes every file registered by this process and clears the registrations:
// what happens at exit.
void removeRegisteredTmpFiles();
