#pragma once

#include <QList>
#include <QString>
#include <QVector>
#include <cstdint>

#include "Algo_Random.h"
#include "PtCloudEnums.h"
#include "PtCloudTypes.h"
#include "stPtCloud_PointArray.h"

namespace ptCloud {

class ILongLiveActionProgress;

// A synthetic airborne survey of a fixed 500 m x 400 m site at UTM-sized
// coordinates whose answers are known: rolling terrain on a slope with a pit,
// flat-roofed buildings, trees and shrubs, a conical stockpile on a flat pad,
// and a few high and low outliers. ASPRS classes (2 ground, 3-5 vegetation by
// height, 6 building, 7 noise) and RGB on every point.
//
// The layout never changes; the point count only changes the density, and
// the seed only the sampling. Points stream out in chunks with a fixed
// working set, so any size can be written.
class PtCloud_DemoScene {
public:
    struct Rect {
        double minX = 0, minY = 0, maxX = 0, maxY = 0;
        bool contains(double x, double y) const { return x >= minX && x <= maxX && y >= minY && y <= maxY; }
    };
    struct Building {
        Rect footprint;
        double roofZ = 0;  // the flat roof's height
    };
    struct Stockpile {
        double x = 0, y = 0;  // centre of the cone's base
        double baseZ = 0;     // height of the flat pad it stands on
        double radius = 0, height = 0;
        double volume() const;  // of the cone above the pad
    };
    struct Pit {
        double x = 0, y = 0, radius = 0, depth = 0;  // depth below the surrounding terrain at the centre
    };
    struct Tree {
        double x = 0, y = 0;
        double crownBottom = 0, top = 0;  // absolute heights
        double radius = 0;                // of the crown
        bool conical = false;             // cone (conifer) or sphere (broadleaf, shrub)
    };

    enum Classes : uint8_t {
        ClassGround = 2, ClassLowVegetation = 3, ClassMediumVegetation = 4,
        ClassHighVegetation = 5, ClassBuilding = 6, ClassNoise = 7
    };

    PtCloud_DemoScene(quint64 pointCount, quint64 seed);
    ~PtCloud_DemoScene();

    // Known answers, in absolute coordinates (metres).
    static Rect extent();
    static Stockpile stockpile();
    static Pit pit();
    static Rect stockpilePad();  // bounding square of the flat pad's disc
    static double stockpilePadRadius();
    const QVector<Building>& buildings() const { return m_buildings; }
    const QVector<Tree>& trees() const { return m_trees; }
    // Bare terrain (slope, rolling hills, the pit, the flat pad), no stockpile.
    static double baseHeight(double x, double y);
    // The surface the ground points lie on: the terrain with the stockpile.
    static double groundHeight(double x, double y);

    quint64 pointCount() const { return m_total; }
    quint64 noisePointCount() const;
    // Columns of every chunk.
    static QList<EDataSetColumn> columns();

    // Starts the stream again; the same seed gives the same points.
    void rewind();
    // Fills out with up to maxPoints next points (its arrays are reused);
    // returns how many, 0 at the end.
    int nextChunk(stPtCloud_PointArray& out, int maxPoints);

    // Streams the whole scene into a LAS file (atomic). The progress sink may
    // be null; a stop request ends with "cancelled" and no file.
    bool writeLas(const QString& path, ILongLiveActionProgress* progress, QString* error);

private:
    enum Part { PartGround, PartBuilding, PartVegetation, PartNoiseHigh, PartNoiseLow, PartCount };
    struct Sample;

    void buildLayout();
    void sampleGround(Sample& s);
    void sampleBuilding(Sample& s);
    void sampleVegetation(Sample& s);
    void sampleNoise(Sample& s, bool high);
    bool insideFootprint(double x, double y) const;
    static int pickWeighted(const std::vector<double>& cumulative, double u);

    quint64 m_total = 0;
    quint64 m_seed = 0;
    quint64 m_partCount[PartCount] = {};
    int m_part = 0;
    quint64 m_partLeft = 0;
    quint64 m_emitted = 0;
    Algo_Random m_rng;
    QVector<Building> m_buildings;
    QVector<Tree> m_trees;
    std::vector<double> m_buildingWeights;  // cumulative: roof and walls of each building
    std::vector<double> m_treeWeights;      // cumulative crown surface areas
};

}  // namespace ptCloud
