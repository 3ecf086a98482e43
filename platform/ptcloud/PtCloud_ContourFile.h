#pragma once

#include <QString>
#include <vector>

#include "PtCloudTypes.h"

namespace ptCloud {

// Contour lines of a DEM: polylines, each at one level, in the dataset's
// relative frame (origin kept in the file).
class PtCloud_ContourFile {
public:
    struct Polyline {
        double level = 0.0;          // absolute height
        bool closed = false;
        std::vector<pcVec3f> points; // relative to origin; z = level - origin.z
    };

    explicit PtCloud_ContourFile(const QString& filepath);
    ~PtCloud_ContourFile();

    bool openFile();   // reads the lines; false when the file is missing or corrupt
    void closeFile();  // forgets them
    bool isValid() const;  // the file exists and its header reads
    bool isOpened() const { return m_opened; }
    QString getFilepath() const { return m_path; }

    const std::vector<Polyline>& lines() const { return m_lines; }
    const pcVec3d& origin() const { return m_origin; }

    // Writes lines atomically to path.
    static bool write(const QString& path, const pcVec3d& origin, const std::vector<Polyline>& lines,
                      QString* error);

private:
    QString m_path;
    bool m_opened = false;
    pcVec3d m_origin;
    std::vector<Polyline> m_lines;
};

}  // namespace ptCloud
