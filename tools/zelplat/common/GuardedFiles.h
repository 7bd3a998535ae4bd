// The files zelplat writes. Support staff run it elevated, often in folders a standard user
// owns: a name there may lead, through a link, a hard link, a device or a pipe, somewhere the
// user could not write. Every file zelplat writes is opened once, checked through its handle and
// written through that same handle.
#pragma once

#include <windows.h>

#include "base/TqUniqueResource.h"

#include <string>

// Asks Windows to ignore links that a non-administrator created (where it offers that); its
// absence or failure leaves the other checks to do the work.
void EnforceRedirectionTrust();

// The name as Windows file functions take it (the arguments come in the ANSI code page).
std::wstring WidePath(const std::string& path);

// The text in the ANSI code page, characters it lacks replaced: for messages, and for the
// library's narrow arguments where nothing better exists.
std::string SystemCodePageText(const std::wstring& wide);

// The name in the ANSI code page, as the library takes it; false when it has no exact spelling
// there.
bool NarrowPath(const std::wstring& wide, std::string& narrow);

// Why the path, by its form alone, names no ordinary file: a device ("NUL", "COM1", "\\.\X"),
// a named pipe or mailslot. Empty when it may name a file.
std::string PathFormProblem(const std::wstring& given);

// Why zelplat refuses the log file: PathFormProblem, or an existing file at the path that is a
// link, a folder, not a disk file, has other hard links or is reached under another name. Empty
// for an ordinary file and for a file that does not exist yet.
std::string LogFileProblem(const std::string& path);

// A report file opened for writing, or why not.
struct OutputFile {
    TqUniqueFile file;
    std::string problem; // non-empty: file is not valid
};

// Creates the file (replace: an existing ordinary file is emptied instead) and checks, through
// the handle, that it is an ordinary disk file with one name, and that this name is the one
// asked for. A file it created and then refused is deleted again.
OutputFile CreateOutputFile(const std::string& path, bool replace);

// Writes all of text; false on a failure.
bool WriteAll(HANDLE file, const std::string& text);

// Reads the file from its start to its end; empty on a failure.
std::string ReadAll(HANDLE file);

// A new file of zelplat's own in the temp folder, made under a fresh random name and opened
// with `access`, `share` and `flags`. Not valid when there is no usable temp folder or no free
// name was found; `path` is its name when valid.
TqUniqueFile CreateTemporaryFile(DWORD access, DWORD share, DWORD flags, std::wstring& path);
