// File-system functions: thin wrappers of Win32 calls, with one path convention and a few
// deliberate rules about separators, lengths and results.
//
// Paths are UTF-8 unless a function says otherwise. "/" and "\" both separate, but in paths that
// begin with "\\?\" only "\" does. With a null path a call fails and does nothing. The functions
// report by their results alone: they never print, and they throw only when memory runs out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace fileop {

// The path as a string; "" for a null path.
std::string PathText(const char* path);

}  // namespace fileop

// True when a file or a directory exists at the path.
bool PathExists(const char* path);

// Deletes a file. Attributes are not changed, so a read-only file cannot be deleted. Returns
//   0  when the file is gone, or its directory held no such file;
//   2  when it cannot be deleted: it is queued for deletion at the next restart, if the process's
//      rights allow that;
//   1  when it cannot be deleted and the platform has no such queue, and for a null path.
int DeleteFileOrSchedule(const char* path);

// True on every Windows of the NT family.
bool IsNtPlatform();

// The attributes as GetFileAttributesW gives them, or INVALID_FILE_ATTRIBUTES (0xFFFFFFFF).
std::uint32_t GetPathAttributes(const char* path);

// True when the path names an existing directory, with or without a "/" at its end. Looks at the
// first 260 bytes only. Of the paths of one or two characters only a drive ("C:") is a directory;
// "ab" and "p/" never are.
bool IsDirectory(const char* path);

// Creates one directory. True also when something of that name exists.
bool CreateDir(const char* path);

// Creates every directory that the path names before a separator: "a/b/c" creates a and a/b,
// "a/b/c/" creates c too. Returns the result of the last creation, as CreateDir does; true when
// there is none to try. False for more than 260 bytes. "\" counts as a separator only after the
// last "/".
bool CreateDirTree(const char* path);

// The same as CreateDirTree for a path in the ANSI code page.
bool MakeParentDirs(const char* path);

// Copies one file with its attributes. A destination that exists is replaced when `failIfExists` is
// 0; otherwise the copy fails.
bool CopyFileTo(const char* source, const char* destination, std::int32_t failIfExists);

// Copies the contents of directory `source` into the existing directory `destination`, with
// subdirectories when `noRecursion` is 0. Both paths must end in a separator, because names are
// appended to them as they stand. Returns true when the last subdirectory and all files after it
// were copied, and for an empty source; false when the source cannot be listed to its end or is an
// empty drive.
//
// These entries are skipped and count as failed:
// - entries whose path would be longer than 259 UTF-16 units;
// - entries whose name holds "/", "\" or ":";
// - entries for which a link stands in the destination;
// - files that another program has put at the destination since, into a directory that was empty;
// - links behind links (other links in the source are followed);
// - directories that another program has open to rename or remove them.
//
// Every directory stays open on both sides, from before it is checked until its walk ends, so that
// nobody can rename, remove or replace it. One gap remains: on NTFS, whoever may add files to a
// destination directory or write its attributes can turn it into a junction while it is empty, and
// files are then copied to wherever that leads.
bool CopyDirectoryTree(const char* source, const char* destination, std::int32_t noRecursion);

// Empties the directory, whose path must end in a separator. Modes:
//   0  deletes everything, the directory included;
//   1  deletes files and keeps directories;
//   2  keeps files and removes directories that are empty then;
//   3  changes nothing.
// The modes that remove directories remove a link to a directory, but never what it leads to.
// Anything that may be a link is treated as one. Entries whose path would be longer than 259 UTF-16
// units, or whose name holds "/", "\" or ":", are skipped and count as failed. Returns the result
// of the last entry; false when the directory cannot be listed to its end.
//
// Every directory stays open while it is emptied, as in CopyDirectoryTree. Its entries are opened
// by name relative to it and deleted through their handles, so no entry of another directory goes,
// wherever its path leads meanwhile. `directory` itself, emptied, is removed by its path.
bool RemoveDirectoryTree(const char* directory, std::int32_t mode);

// Splits the path into its last element and its parent, as boost::filesystem does. Both are "" for
// a null path. Either output may be null.
void SplitPath(const char* path, std::string* fileName, std::string* parent);

// Formats like swprintf into a buffer of `capacity` units; "%s" means a wide string, as always on
// Windows. Returns the number of units written, or -1 when the text does not fit or there is no
// buffer. The buffer holds as much of the text as fits, always terminated.
int FormatWidePath(wchar_t* buffer, std::size_t capacity, const wchar_t* format, ...);
