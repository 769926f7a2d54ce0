// The byte form of the database file that remembers the disks of a store: a 4-byte count,
// then one record per disk in list order (reserved space, recycle flag, base directory,
// plain name, alarm flag, alarm sound; numbers little-endian, strings with the archive's
// length prefix). No magic, no version, nothing else. Internal to storage; stateless.
#pragma once

#include "platform/PrivateHeader.h"

#include "platform/CArchive.h"
#include "storage/StorageRecords.h"

#include <vector>

void WriteDatabaseRecords(CArchive& ar, const std::vector<tag_HDDPARAM>& aRecords);

// Appends the records of the file to aRecords. Throws CArchiveException: endOfFile when the
// data end inside a record, generic when bytes follow the last record (either way the file
// is not one this store wrote); a failing file throws its CFileException.
void ReadDatabaseRecords(CArchive& ar, std::vector<tag_HDDPARAM>& aRecords);
