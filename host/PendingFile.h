#ifndef HARVANE_HOST_PENDINGFILE_H
#define HARVANE_HOST_PENDINGFILE_H

#include <string>

#include "host/FileAccess.h"

namespace harvane {

// A file that appears under its name whole or not at all.
//
// Until Commit it has no name, so that nothing of it can stay behind, however the
// process ends. On a file system without such files it has a hidden name beside
// the target, ".harvane-" and 16 digits of chance, which goes with the object and
// at SIGINT, SIGTERM and SIGHUP, but not when the process is killed; one such
// file at a time. On Windows it has that name always, and the system takes the file away
// when the process ends, however it does.
//
// An existing target is replaced by Commit, unless that is refused; through a symbolic link, the
// file that the link leads to. For that moment every file has a hidden name, which a killed process
// may leave behind; no later run takes or removes it.
//
// Errors     FileError.
// Thread     one caller at a time.
class PendingFile {
 public:
  enum class Naming { kNamelessIfPossible, kHidden };
  // What becomes of a file that is there already.
  enum class Existing {
    kReplaced,
    kRefused,  // at the start, and again, without a moment between look and deed, at Commit
  };

  // Throws where `path` leads to the file `input` or to no regular file, or where
  // its folder cannot be written to.
  PendingFile(const std::string& path, const FileIdentity& input,
              Naming naming = Naming::kNamelessIfPossible, Existing existing = Existing::kReplaced);
  ~PendingFile();
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;

  // As the user wrote it.
  const std::string& Path() const { return path; }
  // Open for reading and writing, until Commit.
  int Number() const { return descriptor.Number(); }

  // Brings the bytes to the disk and gives the file its name. Once it returns both are there to
  // stay; a power cut before leaves the former file or the whole new one.
  void Commit();

 private:
  void RefuseInput() const;
  [[noreturn]] void RefuseExisting() const;
  [[noreturn]] void RefuseName(int error) const;
  // A file that goes with the process; false where there is no such thing.
  bool OpenNameless();
  void OpenHidden();
  std::string HiddenName() const;
  void ReplaceTarget();
  // Gives the hidden file its name; false where there is one like it.
  bool MoveTo(const std::string& name);

  std::string path;
  std::string target;  // what `path` leads to
  std::string folder;
  std::string hidden;  // the temporary name; empty while there is none
  FileIdentity input;
  Existing existing;
  Descriptor descriptor;
};

}  // namespace harvane

#endif  // HARVANE_HOST_PENDINGFILE_H
