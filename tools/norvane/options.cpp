#include "tools/norvane/options.h"

#include <cstring>
#include <string>

#include "tools/norvane/commands.h"

namespace nvtool {

namespace {

// FindLong returns the index of the long option arg[0..len) names, exactly or as the prefix of
// only one; -1 after reporting it unknown or ambiguous, in the words of getopt_long.
int FindLong(const char* command, const char* arg, size_t len, const Option* options, size_t count) {
  int found = -1;
  std::string candidates;
  for (size_t i = 0; i < count; ++i) {
    const char* name = options[i].long_name;
    if (!name || std::strncmp(name, arg, len) != 0) continue;
    if (name[len] == '\0') return static_cast<int>(i);
    candidates += std::string(" '--") + name + "'";
    if (found == -1) found = static_cast<int>(i);
    else found = -2;
  }
  if (found == -1) {
    UsageError("%s: unrecognized option '--%.*s'", command, static_cast<int>(len), arg);
  } else if (found == -2) {
    UsageError("%s: option '--%.*s' is ambiguous; possibilities:%s", command, static_cast<int>(len), arg,
               candidates.c_str());
  }
  return found < 0 ? -1 : found;
}

}  // namespace

bool ParseOptions(int argc, char** argv, const Option* options, size_t count, std::vector<char*>* operands,
                  const std::function<bool(int, char*)>& on_option) {
  const char* command = argv[0];
  for (int i = 1; i < argc; ++i) {
    char* arg = argv[i];
    if (std::strcmp(arg, "--") == 0) {
      for (++i; i < argc; ++i) operands->push_back(argv[i]);
      break;
    }
    if (arg[0] != '-' || arg[1] == '\0') {
      operands->push_back(arg);
      continue;
    }
    if (arg[1] == '-') {
      const char* name = arg + 2;
      char* eq = std::strchr(arg + 2, '=');
      size_t len = eq ? static_cast<size_t>(eq - name) : std::strlen(name);
      int index = FindLong(command, name, len, options, count);
      if (index < 0) return false;
      const Option& option = options[index];
      char* value = nullptr;
      if (option.has_value) {
        if (eq) {
          value = eq + 1;
        } else if (i + 1 < argc) {
          value = argv[++i];
        } else {
          UsageError("%s: option '--%s' requires an argument", command, option.long_name);
          return false;
        }
      } else if (eq) {
        UsageError("%s: option '--%s' doesn't allow an argument", command, option.long_name);
        return false;
      }
      if (!on_option(index, value)) return false;
      continue;
    }
    for (char* p = arg + 1; *p; ++p) {
      int index = -1;
      for (size_t k = 0; k < count; ++k) {
        if (options[k].short_name == *p) index = static_cast<int>(k);
      }
      if (index < 0) {
        UsageError("%s: invalid option -- '%c'", command, *p);
        return false;
      }
      char* value = nullptr;
      if (options[index].has_value) {
        if (p[1]) {
          value = p + 1;
        } else if (i + 1 < argc) {
          value = argv[++i];
        } else {
          UsageError("%s: option requires an argument -- '%c'", command, *p);
          return false;
        }
      }
      if (!on_option(index, value)) return false;
      if (value) break;
    }
  }
  return true;
}

}  // namespace nvtool
