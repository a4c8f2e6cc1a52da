// The functions through which the system touches the file system: thin wraps of the Win32 calls
// with one path convention and a few deliberate rules about separators, lengths and results.
//
// Paths are UTF-8 unless a function says otherwise; "/" and "\" both separate, but only "\" in
// paths that begin with "\\?\". A null path is no path: the call fails with nothing done. The
// functions never throw (exhausted memory apart) and never print: the result is all they report.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace fileop {

// The path as text: "" for a null one.
std::string PathText(const char* path);

}  // namespace fileop

// True when the file system knows the path, as a file or as a directory.
bool PathExists(const char* path);

// Deletes a file. 0: it is gone, or its folder held no such file. 2: it could not be deleted, and
// is queued for deletion at the next restart if the process's rights allow that. 1: the same where
// the platform has no such queue, and for a null path. Attributes are not changed: a read-only file
// is queued.
int DeleteFileOrSchedule(const char* path);

// True on every Windows of the NT family.
bool IsNtPlatform();

// The attribute word of GetFileAttributesW, or INVALID_FILE_ATTRIBUTES (0xFFFFFFFF).
std::uint32_t GetPathAttributes(const char* path);

// True when the path names an existing directory, with or without a "/" at its end. Looks at the
// first 260 bytes only. No path of one or two characters is a directory but for a drive: "C:" is
// one, "ab" and "p/" are not.
bool IsDirectory(const char* path);

// Creates one directory. True as well when it existed.
bool CreateDir(const char* path);

// Creates every directory that the path names before a separator: "a/b/c" gives a and a/b, only
// "a/b/c/" gives c too. True when the last creation tried succeeded or found its directory there.
// False for more than 260 bytes. Looks for "\" only behind the last "/".
bool CreateDirTree(const char* path);

// CreateDirTree for a path in the ANSI code page.
bool MakeParentDirs(const char* path);

// Copies one file with its attributes. A destination that exists is replaced, or, with
// `failIfExists` other than 0, makes the copy fail.
bool CopyFileTo(const char* source, const char* destination, std::int32_t failIfExists);

// Copies what lies in directory `source` into the existing directory `destination`, with
// subdirectories when `noRecursion` is 0. Both must end in a separator; names are appended as they
// stand. True when the last subdirectory copied well and so did every file after it; an empty
// source has nothing that could fail. False when the source cannot be listed to its end. What
// cannot be copied is passed over: so is every entry whose path would be longer than 259 UTF-16
// units or whose name holds "/", "\" or ":", and a file or subdirectory for which a link stands in
// the destination. A file that another program puts into a folder of the destination that was empty
// is not replaced. Links in the source are followed, but for links behind links.
//
// From before its check to the end of its walk every folder is open on both sides: nobody can
// rename, remove or replace it. One that somebody else has open for that already is passed over.
// That does not stop whoever may write a destination folder's attributes: on NTFS they can turn it
// into a junction while it is empty, and files are then copied to wherever that leads.
bool CopyDirectoryTree(const char* source, const char* destination, std::int32_t noRecursion);

// Empties the directory, which must end in a separator. Modes: 0 deletes everything, the directory
// included; 1 deletes files and keeps directories; 2 keeps files and removes directories that are
// empty then; 3 changes nothing. Of a link to a directory only the link itself is removed, by the
// modes that remove directories; what cannot be told from a link is treated as one. Returns the
// result of the last entry handled; entries whose path would be longer than 259 UTF-16 units, or
// whose name holds "/", "\" or ":", cannot be handled and count as failed. False when the directory
// cannot be listed to its end.
//
// Each folder is open while it is emptied, as in CopyDirectoryTree. What lies in it is opened by
// its name in that open folder and deleted through the handle, so that nothing outside the
// directory is removed, wherever its path leads meanwhile.
bool RemoveDirectoryTree(const char* directory, std::int32_t mode);

// The last element of the path and its parent, as boost::filesystem takes a path apart; both "" for
// a null path. Either output may be null.
void SplitPath(const char* path, std::string* fileName, std::string* parent);

// Formats like swprintf, with the platform's own meaning of "%s" (a wide string), into a buffer of
// `capacity` units. Returns the number of units written, or -1 when the text does not fit; the
// buffer then holds as much of it as fits. Always terminates the text.
int FormatWidePath(wchar_t* buffer, std::size_t capacity, const wchar_t* format, ...);
