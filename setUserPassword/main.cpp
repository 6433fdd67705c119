// KorvanePassword: sets or removes one user's password in a Korvane
// installation. Everything but this entry point lives in the libraries.
#include <exception>
#include <string>
#include <vector>

#include "lineEdit/CancelledException.h"
#include "lineEdit/SystemConsole.h"
#include "setUserPassword/Application.h"
#include "setUserPassword/CommandLine.h"
#include "setUserPassword/Messages.h"
#include "setUserPassword/ProcessProtection.h"
#include "setUserPassword/ProgramArguments.h"

namespace {

int reportError(const std::exception& error, int status) {
  // Without allocating: the error may be that memory ran out.
  korvane::setUserPassword::printError("ERROR: ");
  korvane::setUserPassword::printError(error.what());
  korvane::setUserPassword::printError("\n");
  korvane::lineEdit::SystemConsole::retainConsole();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  using korvane::setUserPassword::Application;
  korvane::setUserPassword::protectProcessMemory();
  korvane::setUserPassword::ignoreFileSizeSignal();
  // The specific handlers come first: both exceptions are runtime errors.
  try {
    // Windows: UTF-8 from the wide command line. POSIX: the bytes as given.
    const std::vector<std::string> arguments =
        korvane::setUserPassword::commandLineArguments(argc, argv);
    std::vector<const char*> argumentPointers;
    argumentPointers.reserve(arguments.size());
    for (const std::string& argument : arguments) argumentPointers.push_back(argument.c_str());
    const auto parsed = korvane::setUserPassword::parseCommandLine(
        static_cast<int>(argumentPointers.size()), argumentPointers.data());
    if (parsed.request != korvane::setUserPassword::ParsedCommandLine::Request::run) {
      return korvane::setUserPassword::answerWithoutRun(parsed);
    }
    Application application(parsed.commandLine);
    return application.run();
  } catch (const korvane::lineEdit::CancelledException&) {
    return 1;
  } catch (const Application::WeakPasswordException& error) {
    return reportError(error, 2);
  } catch (const std::exception& error) {
    return reportError(error, 1);
  }
}
