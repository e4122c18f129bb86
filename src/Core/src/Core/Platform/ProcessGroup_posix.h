#pragma once

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <unistd.h>

// What a process group's members are, beyond what kill(-group, 0) tells:
// which of them still run, and whether its orphans come back to this
// process.
namespace Orvan::Core::Platform {

// True when orphaned descendants become this process's children: it is a
// subreaper, or the first process of its PID namespace.
inline bool reapsOrphansOfOthers()
{
  int subreaper = 0;
  return ::getpid() == 1 || (::prctl(PR_GET_CHILD_SUBREAPER, &subreaper) == 0 && subreaper != 0);
}

// Reads /proc/PID/stat: the state letter and the process group, or false
// when the process is gone.
inline bool readProcessState(pid_t process, char& state, pid_t& group)
{
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(process));
  const int file = ::open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    return false;
  }
  char text[512];
  ssize_t size = 0;
  do {
    size = ::read(file, text, sizeof text - 1);
  } while (size < 0 && errno == EINTR);
  ::close(file);
  if (size <= 0) {
    return false;
  }
  text[size] = '\0';
  // "pid (name) state ppid pgrp ...": the name may hold anything, ')' too.
  const char* nameEnd = std::strrchr(text, ')');
  int parent = 0;
  int groupId = 0;
  if (nameEnd == nullptr || std::sscanf(nameEnd + 1, " %c %d %d", &state, &parent, &groupId) != 3) {
    return false;
  }
  group = static_cast<pid_t>(groupId);
  return true;
}

// Tells the running processes of a group from those that have ended but are
// not reaped yet, which the system still counts as members. Nothing but
// /proc tells them apart for processes of others; the members seen last are
// looked at first, and /proc is scanned again only when none of them runs.
class GroupMembers {
public:
  // True when a process of `group` runs, or when this cannot be known.
  bool anyRunning(pid_t group)
  {
    for (const pid_t member : known) {
      if (runs(member, group)) {
        return true;
      }
    }
    known.clear();
    // A /proc of another PID namespace numbers processes otherwise.
    char self[32] = {};
    if (::readlink("/proc/self", self, sizeof self - 1) <= 0 || std::atoi(self) != ::getpid()) {
      return true;
    }
    DIR* directory = ::opendir("/proc");
    if (directory == nullptr) {
      return true;
    }
    bool running = false;
    while (const dirent* entry = ::readdir(directory)) {
      const pid_t process = static_cast<pid_t>(std::atoi(entry->d_name));
      if (process > 0 && runs(process, group)) {
        known.push_back(process);
        running = true;
      }
    }
    ::closedir(directory);
    return running;
  }

private:
  static bool runs(pid_t process, pid_t group)
  {
    char state = 0;
    pid_t memberOf = 0;
    return readProcessState(process, state, memberOf) && memberOf == group && state != 'Z' && state != 'X';
  }

  std::vector<pid_t> known;
};

} // namespace Orvan::Core::Platform
