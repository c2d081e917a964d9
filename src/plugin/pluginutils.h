// Starting the engine, and the plug-in's own log.
#ifndef MPBP_PLUGIN_PLUGINUTILS_H_
#define MPBP_PLUGIN_PLUGINUTILS_H_

#include <chrono>
#include <memory>
#include <string>

#include "base/memorylog.h"

namespace mpbp {

// Where the engine's program is unless the option "install_dir" names another folder.
inline constexpr char kDefaultInstallDir[] = "/opt/murmel/parlplugin/";

// Starts the engine from the folder that the option "install_dir" names, or from the default one.
// It is detached, gets no arguments and this process's environment. *error, which must not be null,
// is 0 on success, else an errno value or -1 when the system gave none. True says that the
// engine's process was started, not that its program exists; that one is not there, or may not be
// run, is a warning. Blocks for two forks.
[[nodiscard]] bool LaunchEngine(int* error);

// For whoever wants an engine to be there soon: as LaunchEngine, but a launch of this process that
// is less than a second old and worked counts as this one, so that the pages of a session that is
// restored start one engine. From any thread.
[[nodiscard]] bool ShareEngineLaunch(int* error);
// The next ShareEngineLaunch starts an engine in any case: the one that was started may be dead.
void ForgetEngineLaunch();

// For whoever still finds no port file that can be used: once for each launch of this process that
// worked, `patience` after it, warns that there is none, and says whether an engine runs. Before
// and after that it costs a look at the clock. From any thread.
void WarnOfSilentLaunch(std::chrono::milliseconds patience = std::chrono::seconds(10));

// What the option for the log's path says: the file, or the folder of a program that shares the
// options of another and writes a file of its own beside.
enum class LogPathMeans { FILE, FOLDER_OF };

// Names the application for the file system, and sets up logging from the options `prefix` +
// "_log_level" and "_log_path": to a file, by default `default_file_name` in the application data
// folder, and to the log store. Then says in the log when it begins, which `version` this is, where
// the folder is and which options are in force, and describes the machine. Every failure is logged
// and leaves out what failed; without the file the store stays empty. What keeps lines from the
// file, then or later, is told to standard error.
//
// For module start; from one thread, as is ReleasePluginLog.
void SetupPluginLogging(const std::string& prefix, const std::string& default_file_name,
                        const std::string& version, LogPathMeans path_means = LogPathMeans::FILE);

// The log in memory, shared with logging; null before SetupPluginLogging made it and after it was
// released. From any thread.
std::shared_ptr<MemoryLog> PluginLogStore();

// For module shutdown: detaches every stream from logging, which closes the log file, and drops the
// store. The next SetupPluginLogging starts with an empty one.
void ReleasePluginLog();

}  // namespace mpbp

#endif  // MPBP_PLUGIN_PLUGINUTILS_H_
