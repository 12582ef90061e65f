// Files installed beside the library. An installed library cannot know its
// prefix when it is built (the prefix is chosen at install time), so the
// adapter and model it ships with are found relative to the directory the
// library was loaded from.
#pragma once

// `relative` resolved against the directory of the loaded object that holds
// `anchor` (an address inside the library), when that file exists; null
// otherwise. The returned string stays valid for the life of the process.
const char* InstalledFile(const void* anchor, const char* relative);
