// Command-line options as the GNU tools read them: short options alone or clustered (-cw), a
// short option's value attached or in the next argument (-fUTF-8, -f UTF-8), long options and
// any unambiguous prefix of them, their value after '=' or in the next argument; options may
// follow operands; "--" ends the options and "-" is an operand.
#ifndef NORVANE_TOOLS_NORVANE_OPTIONS_H_
#define NORVANE_TOOLS_NORVANE_OPTIONS_H_

#include <cstddef>
#include <functional>
#include <vector>

namespace nvtool {

struct Option {
  const char* long_name;  // without the dashes, or null
  char short_name;        // or 0
  bool has_value;
};

// ParseOptions reads argv[1..argc-1] (argv[0] is the command name), calling on_option with the
// index of each option met in options and its value (null for a flag), in order, and collecting
// the operands. A malformed option is reported with UsageError; on_option may report its own and
// answer false. Returns false after any usage error.
bool ParseOptions(int argc, char** argv, const Option* options, size_t count, std::vector<char*>* operands,
                  const std::function<bool(int, char*)>& on_option);

}  // namespace nvtool

#endif  // NORVANE_TOOLS_NORVANE_OPTIONS_H_
