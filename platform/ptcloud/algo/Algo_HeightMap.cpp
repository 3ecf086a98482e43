#include "Algo_HeightMap.h"

#include <QFileInfo>
#include <QObject>
#include <QSaveFile>
#include <QTextStream>
#include <algorithm>
#include <cmath>

#include "Algo_KdTree.h"
#include "PtCloud_FileCommit.h"

namespace ptCloud {

namespace {

struct RampStop {
    double at;
    int r, g, b;
};

// Hypsometric tints from the lowest (0) to the highest (1) ground.
constexpr RampStop kRamp[] = {
    {0.00, 38, 115, 0}, {0.25, 140, 190, 60}, {0.50, 240, 225, 120}, {0.75, 170, 110, 50}, {1.00, 245, 245, 245},
};

QRgb rampColour(double t, double light)
{
    t = std::clamp(t, 0.0, 1.0);
    size_t k = 1;
    while (k + 1 < std::size(kRamp) && kRamp[k].at < t) ++k;
    const RampStop &a = kRamp[k - 1], &b = kRamp[k];
    const double f = (t - a.at) / (b.at - a.at);
    auto mix = [&](int u, int v) { return std::clamp(int(std::lround((u + (v - u) * f) * light)), 0, 255); };
    return qRgb(mix(a.r, b.r), mix(a.g, b.g), mix(a.b, b.b));
}

}  // namespace

Algo_HeightMap::Placement Algo_HeightMap::placement(const Algo_DemGrid::Grid& grid, int longerSide)
{
    // A grid of one row or column still gets one cell of width.
    const double w = std::max((grid.cols - 1) * grid.cell, grid.cell);
    const double h = std::max((grid.rows - 1) * grid.cell, grid.cell);
    Placement p;
    p.width = w >= h ? longerSide : std::max(1, int(std::lround(longerSide * w / h)));
    p.height = h > w ? longerSide : std::max(1, int(std::lround(longerSide * h / w)));
    p.pixelX = w / p.width;
    p.pixelY = h / p.height;
    p.left = grid.x0;
    p.top = grid.y0 + h;
    return p;
}

bool Algo_HeightMap::render(const Algo_DemGrid::Grid& grid, const Params& params, QImage* image,
                            ILongLiveActionProgress* progress, QString* error)
{
    if (!image) return Algo_KdTree::Job::fail(error, QObject::tr("no output for the image"));
    if (params.longerSide < 2 || params.longerSide > 16384)
        return Algo_KdTree::Job::fail(error, QObject::tr("the image's longer side must be 2 to 16384 pixels"));
    if (!(params.altitude >= 0 && params.altitude <= 90))
        return Algo_KdTree::Job::fail(error, QObject::tr("the light's altitude must be 0 to 90 degrees"));
    if (grid.cols * size_t(grid.rows) < 2 || grid.z.size() != size_t(grid.cols) * size_t(grid.rows))
        return Algo_KdTree::Job::fail(error, QObject::tr("the DEM grid is too small for a height map"));
    Algo_KdTree::Job job(progress);
    if (!job.phase(QObject::tr("Height map: shading"), 0, 100)) return Algo_KdTree::Job::cancelled(error);

    const Placement place = placement(grid, params.longerSide);
    QImage out(place.width, place.height, QImage::Format_RGB32);
    if (out.isNull()) return Algo_KdTree::Job::fail(error, QObject::tr("not enough memory for the height map"));
    float lo = 0, hi = 0;
    grid.range(&lo, &hi);
    const double span = hi > lo ? double(hi) - lo : 1.0;
    const double az = params.azimuth * M_PI / 180, alt = params.altitude * M_PI / 180;
    // Unit vector towards the light: x east, y north, z up.
    const double lx = std::sin(az) * std::cos(alt), ly = std::cos(az) * std::cos(alt), lz = std::sin(alt);
    const double d = grid.cell;  // gradients over one node spacing
    const bool ok = job.parallelFor(size_t(place.height), 16, [&](size_t b, size_t e) {
        for (size_t j = b; j < e; ++j) {
            QRgb* line = reinterpret_cast<QRgb*>(out.scanLine(int(j)));
            const double y = place.top - (double(j) + 0.5) * place.pixelY;
            for (int i = 0; i < place.width; ++i) {
                const double x = place.left + (i + 0.5) * place.pixelX;
                const double dzdx = (grid.sample(x + d, y) - grid.sample(x - d, y)) / (2 * d);
                const double dzdy = (grid.sample(x, y + d) - grid.sample(x, y - d)) / (2 * d);
                const double shade = std::max(0.0, (-dzdx * lx - dzdy * ly + lz) / std::sqrt(dzdx * dzdx + dzdy * dzdy + 1));
                line[i] = rampColour((grid.sample(x, y) - lo) / span, 0.4 + 0.6 * shade);
            }
        }
    });
    if (!ok) return Algo_KdTree::Job::cancelled(error);
    *image = std::move(out);
    return true;
}

QString Algo_HeightMap::worldFile(const Placement& p, const pcVec3d& origin)
{
    QString text;
    QTextStream s(&text);
    s.setRealNumberNotation(QTextStream::FixedNotation);
    s.setRealNumberPrecision(6);
    s << p.pixelX << '\n' << 0.0 << '\n' << 0.0 << '\n' << -p.pixelY << '\n'
      << origin.x + p.left + p.pixelX / 2 << '\n' << origin.y + p.top - p.pixelY / 2 << '\n';
    return text;
}

QString Algo_HeightMap::worldFilePath(const QString& imagePath)
{
    const QFileInfo info(imagePath);
    return info.path() + '/' + info.completeBaseName() + QStringLiteral(".pgw");
}

bool Algo_HeightMap::save(const QImage& image, const Placement& placement, const pcVec3d& origin,
                          const QString& imagePath, QString* error)
{
    QSaveFile png(imagePath), world(worldFilePath(imagePath));
    if (!png.open(QIODevice::WriteOnly) || !image.save(&png, "PNG"))
        return Algo_KdTree::Job::fail(error, QObject::tr("cannot write the height map %1: %2").arg(imagePath, png.errorString()));
    if (!world.open(QIODevice::WriteOnly | QIODevice::Text) || world.write(worldFile(placement, origin).toUtf8()) < 0)
        return Algo_KdTree::Job::fail(error, QObject::tr("cannot write the world file %1: %2").arg(world.fileName(), world.errorString()));
    return PtCloud_FileCommit::commit(png, error) && PtCloud_FileCommit::commit(world, error);
}

}  // namespace ptCloud
