// The norvane tool's command table and the helpers its commands share.
//
// Conventions, as in the standard Unix tools: results go to standard output; diagnostics go to
// standard error as "norvane: <message>"; exit status 0 is success, 1 a failure of the job
// (a missing file, a failed check), 2 a usage error (unknown command, bad argument).
//
// Adding a command:
//   1. Write `int RunFoo(int argc, char** argv)` and its usage text `const char kFooUsage[]` in
//      cmd_foo.cpp, and declare both below.
//   2. Add one entry to kCommands in main.cpp: {"foo", "ARGS", "one-line summary", RunFoo, kFooUsage}.
//   3. Describe it in the manual page, norvane.1.in: a .SS section with an example (tool.manpage
//      checks that every command has one). The bash completion reads commands and options from
//      the help, so it needs nothing unless an option's values form a known set.
// The usage text is the whole help of the command, starting "Usage: norvane foo ..." and ending
// in a newline; `norvane help foo` and `norvane foo --help` print it (main handles both, so the
// command never sees --help before a "--"). An entry without one gets its synopsis and summary
// instead. A bad argument is reported with UsageError("foo: ..."), which prints that one line and
// "Try 'norvane help foo'." and returns kExitUsage. ParseOptions (options.h) reads options as the
// GNU tools do; InputFile, OutputFile and Quote (io.h) read inputs to their end, write with write
// errors reported, and quote names in messages.
#ifndef NORVANE_TOOLS_NORVANE_COMMANDS_H_
#define NORVANE_TOOLS_NORVANE_COMMANDS_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace nvtool {

enum ExitStatus { kExitOk = 0, kExitFailure = 1, kExitUsage = 2 };

struct Command {
  const char* name;
  const char* args;     // argument synopsis for the command list, e.g. "[FILE]..."
  const char* summary;  // one line
  // Runs the command; argv[0] is the command name, argv[1..argc-1] its arguments.
  int (*run)(int argc, char** argv);
  const char* usage = nullptr;  // the command's full usage text
};

// The command table, in the order the help lists it.
extern const Command kCommands[];
extern const size_t kCommandCount;

// FindCommand returns the command of that name, or null.
const Command* FindCommand(const char* name);
// Prints the list of commands to stdout.
void PrintUsage();
// Prints the usage text of a command to stdout.
void PrintCommandUsage(const Command& command);
// Prints "norvane: <message>" and "Try 'norvane help <command>'." (the command being run) to
// stderr; returns kExitUsage.
int UsageError(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Prints "norvane: <message>" to stderr.
void Error(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Parses a non-empty hex string of whole bytes (either case) into out; false when text is not one.
bool ParseHex(const char* text, std::vector<uint8_t>* out);

int RunHelp(int argc, char** argv);
int RunVersion(int argc, char** argv);
int RunSha1Sum(int argc, char** argv);
int RunSha256Sum(int argc, char** argv);
int RunSha384Sum(int argc, char** argv);
int RunSha512Sum(int argc, char** argv);
int RunAesCbc(int argc, char** argv);
int RunIconv(int argc, char** argv);
int RunGuid(int argc, char** argv);
int RunRandom(int argc, char** argv);
int RunBase64(int argc, char** argv);
int RunUrl(int argc, char** argv);
int RunPrime(int argc, char** argv);
int RunRsa(int argc, char** argv);
int RunDsa(int argc, char** argv);

extern const char kHelpUsage[];
extern const char kVersionUsage[];
extern const char kSha1SumUsage[];
extern const char kSha256SumUsage[];
extern const char kSha384SumUsage[];
extern const char kSha512SumUsage[];
extern const char kAesCbcUsage[];
extern const char kIconvUsage[];
extern const char kGuidUsage[];
extern const char kRandomUsage[];
extern const char kBase64Usage[];
extern const char kUrlUsage[];
extern const char kPrimeUsage[];
extern const char kRsaUsage[];
extern const char kDsaUsage[];

}  // namespace nvtool

#endif  // NORVANE_TOOLS_NORVANE_COMMANDS_H_
