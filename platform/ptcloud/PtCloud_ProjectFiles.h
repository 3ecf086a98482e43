#pragma once

#include <QString>

namespace ptCloud {

// Where a project's files may lie and how its temporary files are named.
//
// Paths read from a manifest come from whoever made the project folder: they
// are used only once resolved to a place inside the project, so that a
// folder received from someone else cannot make a command read, write or
// delete anything outside it.
//
// Every file or folder a command writes before it is complete carries the
// name ".part-<pid>." followed by its final name, beside its final place;
// only a successful end renames it (publish). What a killed process left is
// recognised by its dead process id and removed when a project is opened.
class PtCloud_ProjectFiles {
public:
    // rel resolved inside root: neither absolute nor climbing out with "..",
    // and the deepest part of it that exists, symbolic links followed, still
    // inside root (itself no symbolic link). Empty with a reason otherwise.
    static QString confined(const QString& root, const QString& rel, QString* error);
    // Removes folder and everything in it, after checking once more that it
    // lies strictly inside root.
    static bool removeFolder(const QString& root, const QString& folder, QString* error);

    // The temporary name of this process for finalPath.
    static QString temporaryFor(const QString& finalPath);
    static bool isTemporary(const QString& path);
    static QString finalNameOf(const QString& temporary);
    // Renames a temporary to its final name, replacing what is there.
    static bool publish(const QString& temporary, QString* error);
    // Removes the temporaries below folder of this process (what a stopped
    // action left) or of processes that no longer run (what a killed one left).
    enum Owners { ThisProcess, EndedProcesses };
    static void removeTemporaries(const QString& folder, Owners owners);
};

}  // namespace ptCloud
