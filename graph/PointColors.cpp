#include "PointColors.h"

#include "stPtCloud_PointArray.h"

#include <QCoreApplication>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

using ptCloud::stPtCloud_PointArray;

const osg::Vec4ub kAsprsColours[] = {
    {200, 200, 200, 255},  // 0 created, never classified
    {150, 150, 150, 255},  // 1 unclassified
    {166, 112, 60, 255},   // 2 ground
    {160, 225, 110, 255},  // 3 low vegetation
    {70, 180, 60, 255},    // 4 medium vegetation
    {20, 105, 35, 255},    // 5 high vegetation
    {225, 85, 50, 255},    // 6 building
    {255, 0, 255, 255},    // 7 low point (noise)
    {255, 200, 0, 255},    // 8 reserved (model key-point in older versions)
    {40, 110, 240, 255},   // 9 water
    {125, 60, 145, 255},   // 10 rail
    {85, 85, 85, 255},     // 11 road surface
    {240, 160, 200, 255},  // 12 reserved (overlap in older versions)
    {255, 255, 150, 255},  // 13 wire guard (shield)
    {255, 235, 0, 255},    // 14 wire conductor (phase)
    {200, 135, 40, 255},   // 15 transmission tower
    {230, 195, 80, 255},   // 16 wire-structure connector
    {150, 150, 225, 255},  // 17 bridge deck
    {255, 0, 120, 255},    // 18 high noise
};

const char* const kAsprsNames[] = {
    QT_TRANSLATE_NOOP("PointColors", "Created, never classified"),
    QT_TRANSLATE_NOOP("PointColors", "Unclassified"),
    QT_TRANSLATE_NOOP("PointColors", "Ground"),
    QT_TRANSLATE_NOOP("PointColors", "Low vegetation"),
    QT_TRANSLATE_NOOP("PointColors", "Medium vegetation"),
    QT_TRANSLATE_NOOP("PointColors", "High vegetation"),
    QT_TRANSLATE_NOOP("PointColors", "Building"),
    QT_TRANSLATE_NOOP("PointColors", "Low point (noise)"),
    QT_TRANSLATE_NOOP("PointColors", "Reserved"),
    QT_TRANSLATE_NOOP("PointColors", "Water"),
    QT_TRANSLATE_NOOP("PointColors", "Rail"),
    QT_TRANSLATE_NOOP("PointColors", "Road surface"),
    QT_TRANSLATE_NOOP("PointColors", "Reserved"),
    QT_TRANSLATE_NOOP("PointColors", "Wire guard (shield)"),
    QT_TRANSLATE_NOOP("PointColors", "Wire conductor (phase)"),
    QT_TRANSLATE_NOOP("PointColors", "Transmission tower"),
    QT_TRANSLATE_NOOP("PointColors", "Wire-structure connector"),
    QT_TRANSLATE_NOOP("PointColors", "Bridge deck"),
    QT_TRANSLATE_NOOP("PointColors", "High noise"),
};
static_assert(sizeof(kAsprsNames) / sizeof(kAsprsNames[0]) == sizeof(kAsprsColours) / sizeof(kAsprsColours[0]),
              "one name per class colour");

// First returns warm, later ones cooler, so canopy over ground reads at a
// glance.
const osg::Vec4ub kReturnColours[] = {
    {140, 140, 140, 255}, {230, 60, 40, 255}, {250, 190, 30, 255},
    {60, 200, 90, 255},   {40, 150, 240, 255}, {170, 80, 230, 255},
};

unsigned char toByte(float v)
{
    return static_cast<unsigned char>(std::lround(std::clamp(v, 0.f, 1.f) * 255.f));
}

osg::Vec4ub fromHsv(float h, float s, float v)
{
    const float f = h * 6.f;
    const int sector = int(f) % 6;
    const float frac = f - std::floor(f);
    const float p = v * (1.f - s), q = v * (1.f - s * frac), t = v * (1.f - s * (1.f - frac));
    float r = v, g = t, b = p;
    switch (sector) {
    case 1: r = q; g = v; b = p; break;
    case 2: r = p; g = v; b = t; break;
    case 3: r = p; g = q; b = v; break;
    case 4: r = t; g = p; b = v; break;
    case 5: r = v; g = p; b = q; break;
    default: break;
    }
    return osg::Vec4ub(toByte(r), toByte(g), toByte(b), 255);
}

template <class T> T valueAt(const std::vector<uint8_t>& raw, size_t index)
{
    T v;
    std::memcpy(&v, raw.data() + index * sizeof(T), sizeof(T));
    return v;
}

// Intensities are meant to span 16 bits, but many files keep 8 or 12: scale
// by the smallest of these that holds the block's largest value.
float intensityScale(const std::vector<uint8_t>& raw, size_t count)
{
    quint16 largest = 0;
    for (size_t i = 0; i < count; ++i) largest = std::max(largest, valueAt<quint16>(raw, i));
    if (largest <= 255) return 1.f / 255.f;
    if (largest <= 4095) return 1.f / 4095.f;
    return 1.f / 65535.f;
}

}  // namespace

osg::Vec4ub PointColors::classification(unsigned int classCode)
{
    constexpr unsigned int known = sizeof(kAsprsColours) / sizeof(kAsprsColours[0]);
    return classCode < known ? kAsprsColours[classCode] : cluster(int(classCode));
}

osg::Vec4ub PointColors::returnNumber(unsigned int number)
{
    constexpr unsigned int last = sizeof(kReturnColours) / sizeof(kReturnColours[0]) - 1;
    return kReturnColours[std::min(number, last)];
}

QString PointColors::className(unsigned int classCode)
{
    constexpr unsigned int known = sizeof(kAsprsNames) / sizeof(kAsprsNames[0]);
    if (classCode < known) return QCoreApplication::translate("PointColors", kAsprsNames[classCode]);
    // LAS 1.4 reserves 19 to 63; 64 and up are the user's.
    return classCode < 64 ? QCoreApplication::translate("PointColors", "Reserved")
                          : QCoreApplication::translate("PointColors", "User defined");
}

bool PointColors::stretch(std::vector<float>& samples, double lowFraction, double highFraction, float* low,
                          float* high)
{
    if (samples.empty()) return false;
    const auto at = [&samples](double fraction) {
        const size_t k = std::min(samples.size() - 1, size_t(std::clamp(fraction, 0.0, 1.0) * double(samples.size())));
        std::nth_element(samples.begin(), samples.begin() + std::ptrdiff_t(k), samples.end());
        return samples[k];
    };
    *low = at(lowFraction);
    *high = at(highFraction);
    return true;
}

osg::Vec4ub PointColors::heightRamp(float t)
{
    static const osg::Vec4ub stops[] = {
        {0, 0, 255, 255}, {0, 255, 255, 255}, {0, 255, 0, 255}, {255, 255, 0, 255}, {255, 0, 0, 255}};
    constexpr int last = int(sizeof(stops) / sizeof(stops[0])) - 1;
    const float at = std::clamp(std::isfinite(t) ? t : 0.f, 0.f, 1.f) * float(last);
    const int i = std::min(int(at), last - 1);
    const float f = at - float(i);
    osg::Vec4ub out;
    for (int c = 0; c < 4; ++c)
        out[c] = static_cast<unsigned char>(std::lround(stops[i][c] + (stops[i + 1][c] - stops[i][c]) * f));
    return out;
}

osg::Vec4ub PointColors::intensityRamp(float t)
{
    const unsigned char v = toByte(std::sqrt(std::clamp(std::isfinite(t) ? t : 0.f, 0.f, 1.f)));
    return osg::Vec4ub(v, v, v, 255);
}

osg::Vec4ub PointColors::cluster(int label)
{
    if (label < 0) return osg::Vec4ub(128, 128, 128, 255);
    constexpr double kGoldenTurn = 0.6180339887498949;
    const double hue = std::fmod(0.08 + double(label) * kGoldenTurn, 1.0);
    // Alternating saturation and value separate labels whose hues come
    // close again after many golden-angle steps.
    const float saturation = (label % 2 == 0) ? 0.85f : 0.6f;
    const float value = ((label / 2) % 2 == 0) ? 0.95f : 0.75f;
    return fromHsv(float(hue), saturation, value);
}

osg::ref_ptr<osg::Vec4ubArray> PointColors::blockColors(const stPtCloud_PointArray& block,
                                                        const PointColoring& coloring, int stride,
                                                        const ptCloud::pcBoundingBoxf& heightRange)
{
    const bool ranged = coloring.high > coloring.low;
    const size_t step = size_t(std::max(stride, 1));
    const size_t count = size_t(block.count);
    osg::ref_ptr<osg::Vec4ubArray> out = new osg::Vec4ubArray;
    out->reserve((count + step - 1) / step);

    const auto* classes = block.columnData<quint8>(ptCloud::DSC_Classification);
    const auto* labels = block.hasColumn(ptCloud::DSC_Label) ? &block.columns.at(ptCloud::DSC_Label) : nullptr;
    const auto* intensities =
        block.hasColumn(ptCloud::DSC_Intensity) ? &block.columns.at(ptCloud::DSC_Intensity) : nullptr;

    switch (coloring.mode) {
    case ptCloud::CM_RGB:
        if (block.colors.size() == count) {
            for (size_t i = 0; i < count; i += step) {
                const ptCloud::pcVec4f& c = block.colors[i];
                out->push_back(osg::Vec4ub(toByte(c.x), toByte(c.y), toByte(c.z), toByte(c.w)));
            }
            return out;
        }
        break;
    case ptCloud::CM_Classification:
        if (classes) {
            for (size_t i = 0; i < count; i += step) out->push_back(classification(classes[i]));
            return out;
        }
        break;
    case ptCloud::CM_Intensity:
        if (intensities) {
            const float offset = ranged ? coloring.low : 0.f;
            const float scale =
                ranged ? 1.f / (coloring.high - coloring.low) : intensityScale(*intensities, count);
            for (size_t i = 0; i < count; i += step)
                out->push_back(intensityRamp((float(valueAt<quint16>(*intensities, i)) - offset) * scale));
            return out;
        }
        break;
    case ptCloud::CM_ReturnNumber:
        if (const auto* returns = block.columnData<quint8>(ptCloud::DSC_ReturnNumber)) {
            for (size_t i = 0; i < count; i += step) out->push_back(returnNumber(returns[i]));
            return out;
        }
        break;
    case ptCloud::CM_PointSource:
        if (block.hasColumn(ptCloud::DSC_PointSourceId)) {
            const auto& sources = block.columns.at(ptCloud::DSC_PointSourceId);
            for (size_t i = 0; i < count; i += step) out->push_back(cluster(valueAt<quint16>(sources, i)));
            return out;
        }
        break;
    case ptCloud::CM_Cluster:
        if (labels) {
            for (size_t i = 0; i < count; i += step) out->push_back(cluster(valueAt<qint32>(*labels, i)));
            return out;
        }
        break;
    case ptCloud::CM_Height:
        break;
    }

    const bool heightRanged = ranged && coloring.mode == ptCloud::CM_Height;
    const float low = heightRanged ? coloring.low : heightRange.valid() ? heightRange.min.z : 0.f;
    const float span = heightRanged ? coloring.high - coloring.low
                                    : heightRange.valid() ? heightRange.max.z - heightRange.min.z : 0.f;
    const float inverse = span > 0.f ? 1.f / span : 0.f;
    for (size_t i = 0; i < count; i += step) out->push_back(heightRamp((block.positions[i].z - low) * inverse));
    return out;
}
