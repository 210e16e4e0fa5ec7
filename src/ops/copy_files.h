// Files and whole trees, copied between the host and a volume.
#pragma once

#include "base/job.h"
#include "fs/tree_walk.h"

namespace tallowin {

// Where `to` is a folder that is there, the copy goes into it under its own name, else it is called
// `to`, whose folder has to be there. Of a `from` that ends in "/." (or is a root) everything in it
// is copied. Folders of the same name become one.
struct CopyWish {
  std::string from;
  std::string to;
  bool overwrite = false;    // files that are there are replaced; else refused
  bool skipSpecial = false;  // links, devices and pipes of the host are left out; else refused
};

struct CopyReport {
  u64 filesWanted = 0;
  u64 files = 0;  // are copied, and whole
  u64 folders = 0;
  u64 bytes = 0;
  u64 neededBytes = 0;  // set when they are more than the free ones
  u64 freeBytes = 0;
  std::vector<std::string> skipped;  // paths of the host
  std::vector<FileFailure> leftOut;  // of copyOut: what is damaged below the top
};

// Everything that can be known is looked at before the first write: names, sizes, space, and what
// is there already. Then: a file is under its name when it is whole, an older one is there until
// then, and after a failure or a stop what was copied stays. Asked by the job: phases copyingIn and
// copyingOut, in bytes. The path of a failure is one of the host or of the volume.
//
// cancelled; noSuchFile, cannotOpenForReading, read, write, outOfMemory.
// copyIn: specialFile, nameNotUtf8, invalidName, nameTooLong, sameName, alreadyExists,
// fileTooLarge, volumeFull: nothing was written, unless a folder needed more room than was
// reckoned; else those of FileSystem. The volume has to be synced by the caller.
FileFailure copyIn(FileSystem& files, const CopyWish& wish, Job& job, CopyReport& report);
// copyOut: alreadyExists: nothing was written; cannotCreate, noSpaceLeft; corrupt, nameTooLong for
// the top alone, as read where the job passes over what cannot be read. When it succeeds everything
// that was not left out is on the medium of the host.
FileFailure copyOut(FileSystem& files, const CopyWish& wish, Job& job, CopyReport& report);

}  // namespace tallowin
