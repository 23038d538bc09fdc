// The norvane tool's command table and the helpers its commands share.
//
// Conventions, as in the standard Unix tools: results go to standard output; diagnostics go to
// standard error as "norvane: <message>"; exit status 0 is success, 1 a failure of the job
// (a missing file, a failed check), 2 a usage error (unknown command, bad argument).
#ifndef NORVANE_TOOLS_NORVANE_COMMANDS_H_
#define NORVANE_TOOLS_NORVANE_COMMANDS_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace nvtool {

enum ExitStatus { kExitOk = 0, kExitFailure = 1, kExitUsage = 2 };

struct Command {
  const char* name;
  const char* args;     // argument synopsis for the help, e.g. "[FILE]..."
  const char* summary;  // one line
  // Runs the command; argv[0] is the command name, argv[1..argc-1] its arguments.
  int (*run)(int argc, char** argv);
};

// The command table, in the order the help lists it.
extern const Command kCommands[];
extern const size_t kCommandCount;

// Prints the help text to stdout, or to stderr after a usage error.
void PrintUsage(bool to_stderr);
// Prints "norvane: <message>" and the usage to stderr; returns kExitUsage.
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

}  // namespace nvtool

#endif  // NORVANE_TOOLS_NORVANE_COMMANDS_H_
