#include "PtCloud_DemoScene.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "ILongLiveActionProgress.h"
#include "LasWriter.h"

namespace ptCloud {

namespace {

constexpr double kPi = 3.14159265358979323846;

// The site's south-west corner and datum: UTM-sized, so that single-precision
// shortcuts anywhere in the pipeline show up as errors.
constexpr double kX0 = 500000.0;
constexpr double kY0 = 4000000.0;
constexpr double kDatum = 100.0;
constexpr double kWidth = 500.0;
constexpr double kDepth = 400.0;

// Site features in local metres from the corner.
constexpr double kPadX = 120.0, kPadY = 110.0, kPadRadius = 40.0, kPadBlend = 20.0;
constexpr double kPileRadius = 15.0, kPileHeight = 6.0;
constexpr double kPitX = 390.0, kPitY = 310.0, kPitRadius = 30.0, kPitDepth = 8.0;

struct BuildingSpec {
    double minX, minY, maxX, maxY, height;
};
const BuildingSpec kBuildingSpecs[] = {
    {30, 240, 70, 280, 8},   {90, 240, 150, 270, 12}, {170, 230, 220, 290, 6},
    {40, 310, 100, 370, 15}, {130, 300, 210, 360, 9},
};
const pcVec3f kRoofColors[] = {
    {0.70f, 0.30f, 0.20f}, {0.50f, 0.50f, 0.55f}, {0.30f, 0.30f, 0.32f},
    {0.60f, 0.20f, 0.20f}, {0.75f, 0.75f, 0.70f},
};

constexpr int kChunkPoints = 65536;
constexpr double kGpsStart = 1.0e6;
constexpr double kPulseInterval = 1.0e-5;  // a 100 kHz scanner

// Undisturbed terrain: a gentle slope with rolling hills on it.
double rawTerrain(double lx, double ly)
{
    return kDatum + 0.02 * lx + 0.01 * ly +
           1.2 * std::sin(2.0 * kPi * lx / 140.0) * std::cos(2.0 * kPi * ly / 110.0);
}

double smoothstep(double t)
{
    t = std::clamp(t, 0.0, 1.0);
    return t * t * (3.0 - 2.0 * t);
}

double padHeight() { return rawTerrain(kPadX, kPadY); }

// std::hypot guards against overflow the site's distances never reach, at
// several times the cost, on the hot path of every point.
double distance(double dx, double dy) { return std::sqrt(dx * dx + dy * dy); }

}  // namespace

struct PtCloud_DemoScene::Sample {
    double x = 0, y = 0, z = 0;
    pcVec3f rgb;
    uint8_t cls = ClassGround;
    uint16_t intensity = 0;
    uint8_t returnNumber = 1, returns = 1;
};

double PtCloud_DemoScene::Stockpile::volume() const { return kPi * radius * radius * height / 3.0; }

PtCloud_DemoScene::PtCloud_DemoScene(quint64 pointCount, quint64 seed) : m_total(pointCount), m_seed(seed)
{
    const quint64 noise = noisePointCount() / 2;
    m_partCount[PartNoiseHigh] = noise;
    m_partCount[PartNoiseLow] = noise;
    const quint64 rest = m_total - 2 * noise;
    m_partCount[PartBuilding] = rest * 14 / 100;
    m_partCount[PartVegetation] = rest * 22 / 100;
    m_partCount[PartGround] = rest - m_partCount[PartBuilding] - m_partCount[PartVegetation];
    buildLayout();
    rewind();
}

PtCloud_DemoScene::~PtCloud_DemoScene() = default;

quint64 PtCloud_DemoScene::noisePointCount() const
{
    if (m_total < 200) return 0;
    return 2 * std::max<quint64>(3, m_total / 200000);
}

PtCloud_DemoScene::Rect PtCloud_DemoScene::extent()
{
    return Rect{kX0, kY0, kX0 + kWidth, kY0 + kDepth};
}

PtCloud_DemoScene::Stockpile PtCloud_DemoScene::stockpile()
{
    Stockpile s;
    s.x = kX0 + kPadX;
    s.y = kY0 + kPadY;
    s.baseZ = padHeight();
    s.radius = kPileRadius;
    s.height = kPileHeight;
    return s;
}

PtCloud_DemoScene::Pit PtCloud_DemoScene::pit()
{
    return Pit{kX0 + kPitX, kY0 + kPitY, kPitRadius, kPitDepth};
}

PtCloud_DemoScene::Rect PtCloud_DemoScene::stockpilePad()
{
    return Rect{kX0 + kPadX - kPadRadius, kY0 + kPadY - kPadRadius, kX0 + kPadX + kPadRadius,
                kY0 + kPadY + kPadRadius};
}

double PtCloud_DemoScene::stockpilePadRadius() { return kPadRadius; }

double PtCloud_DemoScene::baseHeight(double x, double y)
{
    const double lx = x - kX0, ly = y - kY0;
    double z = rawTerrain(lx, ly);
    const double padR = distance(lx - kPadX, ly - kPadY);
    if (padR < kPadRadius + kPadBlend) {
        const double flat = padHeight();
        z = flat + (z - flat) * smoothstep((padR - kPadRadius) / kPadBlend);
    }
    const double pitR = distance(lx - kPitX, ly - kPitY);
    if (pitR < kPitRadius) {
        const double q = 1.0 - (pitR / kPitRadius) * (pitR / kPitRadius);
        z -= kPitDepth * q * q;
    }
    return z;
}

double PtCloud_DemoScene::groundHeight(double x, double y)
{
    const double r = distance(x - kX0 - kPadX, y - kY0 - kPadY);
    const double pile = r < kPileRadius ? kPileHeight * (1.0 - r / kPileRadius) : 0.0;
    return baseHeight(x, y) + pile;
}

QList<EDataSetColumn> PtCloud_DemoScene::columns()
{
    return {DSC_Location, DSC_Color, DSC_Intensity, DSC_ReturnNumber, DSC_NumberOfReturnsGivenPulse,
            DSC_Classification, DSC_GpsTime};
}

void PtCloud_DemoScene::buildLayout()
{
    m_buildings.clear();
    m_buildingWeights.clear();
    double weight = 0;
    for (const BuildingSpec& b : kBuildingSpecs) {
        Building building;
        building.footprint = Rect{kX0 + b.minX, kY0 + b.minY, kX0 + b.maxX, kY0 + b.maxY};
        building.roofZ = baseHeight(kX0 + (b.minX + b.maxX) / 2, kY0 + (b.minY + b.maxY) / 2) + b.height;
        m_buildings << building;
        const double w = b.maxX - b.minX, d = b.maxY - b.minY;
        weight += w * d;
        m_buildingWeights.push_back(weight);  // roof
        weight += 2.0 * (w + d) * b.height;
        m_buildingWeights.push_back(weight);  // walls
    }

    // The trees come from a fixed seed: the layout is part of the known answers.
    Algo_Random layout(20240601);
    m_trees.clear();
    auto farFromTrees = [this](double x, double y, double spacing) {
        for (const Tree& t : m_trees)
            if (distance(t.x - x, t.y - y) < spacing) return false;
        return true;
    };
    for (int attempt = 0; attempt < 4000 && m_trees.size() < 60; ++attempt) {
        const double x = kX0 + layout.uniform(265, 475), y = kY0 + layout.uniform(25, 195);
        if (!farFromTrees(x, y, 7.0)) continue;
        Tree t;
        t.x = x;
        t.y = y;
        const double ground = baseHeight(x, y);
        t.conical = layout.uniform() < 0.6;
        if (t.conical) {
            t.top = ground + layout.uniform(12, 22);
            t.crownBottom = ground + layout.uniform(2, 4);
            t.radius = layout.uniform(2.0, 3.5);
        } else {
            t.radius = layout.uniform(2.5, 4.5);
            t.top = ground + layout.uniform(8, 16);
            t.crownBottom = t.top - 2.0 * t.radius;
        }
        m_trees << t;
    }
    // A hedge of shrubs between the stockpile yard and the buildings.
    for (int i = 0; i < 25; ++i) {
        Tree t;
        t.x = kX0 + 20.0 + i * 8.5 + layout.uniform(-1, 1);
        t.y = kY0 + 206.0 + layout.uniform(-3, 3);
        t.radius = layout.uniform(0.6, 0.9);
        t.crownBottom = baseHeight(t.x, t.y) + 0.1;
        t.top = t.crownBottom + 2.0 * t.radius;
        m_trees << t;
    }
    m_treeWeights.clear();
    weight = 0;
    for (const Tree& t : m_trees) {
        const double h = t.top - t.crownBottom;
        weight += t.conical ? kPi * t.radius * std::sqrt(t.radius * t.radius + h * h)
                            : 4.0 * kPi * t.radius * t.radius;
        m_treeWeights.push_back(weight);
    }
}

void PtCloud_DemoScene::rewind()
{
    m_rng.seed(m_seed);
    m_part = 0;
    m_partLeft = m_partCount[0];
    m_emitted = 0;
}

int PtCloud_DemoScene::pickWeighted(const std::vector<double>& cumulative, double u)
{
    const double target = u * cumulative.back();
    const auto it = std::upper_bound(cumulative.begin(), cumulative.end(), target);
    return int(std::min<size_t>(size_t(it - cumulative.begin()), cumulative.size() - 1));
}

bool PtCloud_DemoScene::insideFootprint(double x, double y) const
{
    for (const Building& b : m_buildings)
        if (b.footprint.contains(x, y)) return true;
    return false;
}

void PtCloud_DemoScene::sampleGround(Sample& s)
{
    do {
        s.x = kX0 + m_rng.uniform(0, kWidth);
        s.y = kY0 + m_rng.uniform(0, kDepth);
    } while (insideFootprint(s.x, s.y));  // roofs hide the ground from the air
    s.z = groundHeight(s.x, s.y) + m_rng.uniform(-0.015, 0.015);
    const float shade = float(m_rng.uniform(-0.05, 0.05));
    const double pileR = distance(s.x - kX0 - kPadX, s.y - kY0 - kPadY);
    const double pitR = distance(s.x - kX0 - kPitX, s.y - kY0 - kPitY);
    if (pileR < kPileRadius)
        s.rgb = pcVec3f(0.80f + shade, 0.70f + shade, 0.45f + shade);  // sand
    else if (pileR < kPadRadius)
        s.rgb = pcVec3f(0.55f + shade, 0.55f + shade, 0.50f + shade);  // gravel pad
    else if (pitR < kPitRadius)
        s.rgb = pcVec3f(0.45f + shade, 0.35f + shade, 0.25f + shade);  // bare soil
    else
        s.rgb = pcVec3f(0.35f + shade, 0.47f + shade, 0.22f + shade);  // grass
    s.cls = ClassGround;
    s.intensity = uint16_t(m_rng.uniform(400, 700));
    s.returnNumber = s.returns = 1;
}

void PtCloud_DemoScene::sampleBuilding(Sample& s)
{
    const int pick = pickWeighted(m_buildingWeights, m_rng.uniform());
    const int index = pick / 2;
    const Building& b = m_buildings[index];
    const Rect& f = b.footprint;
    const double w = f.maxX - f.minX, d = f.maxY - f.minY;
    if (pick % 2 == 0) {
        s.x = m_rng.uniform(f.minX, f.maxX);
        s.y = m_rng.uniform(f.minY, f.maxY);
        s.z = b.roofZ;
        const float shade = float(m_rng.uniform(-0.04, 0.04));
        const pcVec3f& c = kRoofColors[index % 5];
        s.rgb = pcVec3f(c.x + shade, c.y + shade, c.z + shade);
        s.intensity = uint16_t(m_rng.uniform(900, 1300));
    } else {
        double p = m_rng.uniform(0, 2.0 * (w + d));
        if (p < w) {
            s.x = f.minX + p;
            s.y = f.minY;
        } else if ((p -= w) < d) {
            s.x = f.maxX;
            s.y = f.minY + p;
        } else if ((p -= d) < w) {
            s.x = f.maxX - p;
            s.y = f.maxY;
        } else {
            s.x = f.minX;
            s.y = f.maxY - (p - w);
        }
        s.z = m_rng.uniform(baseHeight(s.x, s.y), b.roofZ);
        s.rgb = pcVec3f(0.85f, 0.82f, 0.75f);
        s.intensity = uint16_t(m_rng.uniform(500, 700));
    }
    s.cls = ClassBuilding;
    s.returnNumber = s.returns = 1;
}

void PtCloud_DemoScene::sampleVegetation(Sample& s)
{
    const Tree& t = m_trees[pickWeighted(m_treeWeights, m_rng.uniform())];
    const double angle = m_rng.uniform(0, 2.0 * kPi);
    const double depth = m_rng.uniform(0.8, 1.0);  // leaves just inside the crown's hull
    double ring, z;
    if (t.conical) {
        // Uniform over the cone's side: the ring's length grows with the distance from the apex.
        const double along = std::sqrt(m_rng.uniform());
        ring = along * t.radius * depth;
        z = t.top - along * (t.top - t.crownBottom);
        s.rgb = pcVec3f(0.15f, 0.35f, 0.15f);
    } else {
        const double cz = m_rng.uniform(-1.0, 1.0);
        ring = std::sqrt(1.0 - cz * cz) * t.radius * depth;
        z = t.crownBottom + t.radius + cz * t.radius * depth;
        s.rgb = t.radius < 1.0 ? pcVec3f(0.35f, 0.55f, 0.25f) : pcVec3f(0.30f, 0.50f, 0.20f);
    }
    s.x = t.x + ring * std::cos(angle);
    s.y = t.y + ring * std::sin(angle);
    s.z = z;
    const double aboveGround = z - baseHeight(s.x, s.y);
    s.cls = aboveGround < 2.0 ? ClassLowVegetation : (aboveGround < 5.0 ? ClassMediumVegetation : ClassHighVegetation);
    s.intensity = uint16_t(m_rng.uniform(150, 350));
    s.returnNumber = 1;
    s.returns = 2;
}

void PtCloud_DemoScene::sampleNoise(Sample& s, bool high)
{
    s.x = kX0 + m_rng.uniform(0, kWidth);
    s.y = kY0 + m_rng.uniform(0, kDepth);
    const double ground = groundHeight(s.x, s.y);
    s.z = high ? ground + m_rng.uniform(40, 120) : ground - m_rng.uniform(3, 15);
    s.rgb = high ? pcVec3f(1.f, 1.f, 1.f) : pcVec3f(0.2f, 0.2f, 0.2f);
    s.cls = ClassNoise;
    s.intensity = uint16_t(m_rng.uniform(50, 3000));
    s.returnNumber = s.returns = 1;
}

int PtCloud_DemoScene::nextChunk(stPtCloud_PointArray& out, int maxPoints)
{
    const quint64 left = m_total - m_emitted;
    const int n = int(std::min<quint64>(left, quint64(std::max(0, maxPoints))));
    out.origin = pcVec3d(kX0 + kWidth / 2, kY0 + kDepth / 2, kDatum);
    for (EDataSetColumn c : columns()) out.addColumn(c);
    out.resize(n);
    uint8_t* cls = out.columnData<uint8_t>(DSC_Classification);
    uint16_t* intensity = out.columnData<uint16_t>(DSC_Intensity);
    uint8_t* returnNumber = out.columnData<uint8_t>(DSC_ReturnNumber);
    uint8_t* returns = out.columnData<uint8_t>(DSC_NumberOfReturnsGivenPulse);
    uint8_t* gpsTime = out.columnData<uint8_t>(DSC_GpsTime);

    Sample s;
    for (int i = 0; i < n; ++i) {
        while (m_partLeft == 0) m_partLeft = m_partCount[++m_part];
        switch (m_part) {
        case PartGround: sampleGround(s); break;
        case PartBuilding: sampleBuilding(s); break;
        case PartVegetation: sampleVegetation(s); break;
        default: sampleNoise(s, m_part == PartNoiseHigh); break;
        }
        --m_partLeft;
        out.positions[size_t(i)] = pcVec3f(float(s.x - out.origin.x), float(s.y - out.origin.y),
                                           float(s.z - out.origin.z));
        out.colors[size_t(i)] = pcVec4f(std::clamp(s.rgb.x, 0.f, 1.f), std::clamp(s.rgb.y, 0.f, 1.f),
                                        std::clamp(s.rgb.z, 0.f, 1.f), 1.f);
        cls[i] = s.cls;
        intensity[i] = s.intensity;
        returnNumber[i] = s.returnNumber;
        returns[i] = s.returns;
        const double t = kGpsStart + double(m_emitted + quint64(i)) * kPulseInterval;
        std::memcpy(gpsTime + size_t(i) * sizeof(double), &t, sizeof t);
    }
    m_emitted += quint64(n);
    return n;
}

bool PtCloud_DemoScene::writeLas(const QString& path, ILongLiveActionProgress* progress, QString* error)
{
    rewind();
    const double scale[3] = {0.001, 0.001, 0.001};
    const double offset[3] = {kX0, kY0, 0.0};
    LasWriter writer;
    if (!writer.open(path, true, scale, offset, QString(), error)) return false;
    stPtCloud_PointArray chunk;
    while (nextChunk(chunk, kChunkPoints) > 0) {
        if (!writer.write(chunk, error)) return false;
        if (progress) {
            if (progress->isStopRequested()) {
                if (error) *error = QStringLiteral("cancelled");
                return false;
            }
            progress->setProgress(int(m_emitted * 100 / std::max<quint64>(1, m_total)));
        }
    }
    if (progress) progress->setProgressText(QStringLiteral("saving"));  // the final flush can take a while
    return writer.close(error);
}

}  // namespace ptCloud
