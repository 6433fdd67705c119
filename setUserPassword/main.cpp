// KorvanePassword: sets or removes one user's password in a Korvane
// installation. Everything but this entry point lives in the libraries.
#include <exception>
#include <iostream>

#include "lineEdit/CancelledException.h"
#include "setUserPassword/Application.h"
#include "setUserPassword/CommandLine.h"
#include "setUserPassword/ProcessProtection.h"
#include "utils/windows/RetainConsole.h"

namespace {

int reportError(const std::exception& error, int status) {
  std::cerr << "ERROR: " << error.what() << std::endl;
  korvane::utils::windows::retainConsole();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  using korvane::setUserPassword::Application;
  korvane::setUserPassword::protectProcessMemory();
  // The specific handlers come first: both exceptions are runtime errors.
  try {
    const auto parsed = korvane::setUserPassword::parseCommandLine(argc, argv);
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
