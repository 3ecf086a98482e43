#include "LazPoint14Codec.h"

#include <cstring>

#include "LazDecoder.h"
#include "LazEncoder.h"

namespace ptCloud {

namespace {

// Six classes of [number of returns][return number] for the x/y medians:
// single; first and last of two; first, intermediate and last of more.
const uint8_t kReturnMap6[16][16] = {
    {0, 1, 2, 3, 4, 5, 3, 4, 4, 5, 5, 5, 5, 5, 5, 5}, {1, 0, 1, 3, 4, 5, 3, 4, 4, 5, 5, 5, 5, 5, 5, 5},
    {2, 1, 2, 4, 5, 3, 4, 4, 5, 5, 5, 5, 5, 5, 5, 5}, {3, 3, 4, 5, 4, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5},
    {4, 3, 4, 4, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5}, {5, 3, 4, 4, 4, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5},
    {3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5}, {4, 3, 4, 4, 4, 4, 4, 5, 5, 5, 5, 5, 5, 5, 5, 5},
    {4, 3, 4, 4, 4, 4, 4, 4, 5, 5, 5, 5, 5, 5, 5, 5}, {5, 3, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 5, 5, 5, 5},
    {5, 3, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 5, 5, 5}, {5, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 5, 5},
    {5, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 5}, {5, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5},
    {5, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5}, {5, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5}};

// Distance of the return from the last one, at most 7: the z context.
int returnLevel(int n, int r) {
    const int d = n > r ? n - r : r - n;
    return d > 7 ? 7 : d;
}

template <class T> T get(const uint8_t* p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
template <class T> void put(uint8_t* p, T v) { std::memcpy(p, &v, sizeof v); }

int32_t plus(int32_t a, int32_t b) { return int32_t(uint32_t(a) + uint32_t(b)); }
int32_t minus(int32_t a, int32_t b) { return int32_t(uint32_t(a) - uint32_t(b)); }

}  // namespace

struct LazPoint14Codec::Context {
    explicit Context(const Point& seed) : last(seed), gps(true, seed.gps) {
        last.gpsChange = false;
        for (int i = 0; i < 8; ++i) {
            lastZ[i] = seed.z;
            lastIntensity[i] = seed.intensity;
        }
        for (int i = 0; i < 8; ++i) changed[i].reset(new LazSymbolModel(128));
    }
    LazSymbolModel& model(std::unique_ptr<LazSymbolModel>* table, int i, int symbols) {
        if (!table[i]) table[i].reset(new LazSymbolModel(symbols));
        return *table[i];
    }

    Point last;
    uint16_t lastIntensity[8];
    int32_t lastZ[8];
    LazMedian5 xMedian[12], yMedian[12];
    std::unique_ptr<LazSymbolModel> changed[8], returns[16], returnNumber[16], cls[64], flags[64], user[64];
    LazSymbolModel returnNumberGpsSame{13};
    LazIntegerModel dx{32, 2}, dy{32, 22}, z{32, 20}, intensity{16, 4}, angle{16, 2}, sourceId{16, 1};
    LazGpsCodec gps;
};

LazPoint14Codec::LazPoint14Codec(const uint8_t* first) {
    const Point p = unpack(first);
    start(p.channel, p);
}

LazPoint14Codec::~LazPoint14Codec() = default;

void LazPoint14Codec::start(int channel, const Point& seed) {
    m_contexts[channel].reset(new Context(seed));
    m_contexts[channel]->last.channel = uint8_t(channel);
    m_current = channel;
}

LazPoint14Codec::Point LazPoint14Codec::unpack(const uint8_t* rec) {
    Point p;
    p.x = get<int32_t>(rec);
    p.y = get<int32_t>(rec + 4);
    p.z = get<int32_t>(rec + 8);
    p.intensity = get<uint16_t>(rec + 12);
    p.r = rec[14] & 15;
    p.n = rec[14] >> 4;
    p.classFlags = rec[15] & 15;
    p.channel = (rec[15] >> 4) & 3;
    p.scanDir = (rec[15] >> 6) & 1;
    p.edge = rec[15] >> 7;
    p.cls = rec[16];
    p.user = rec[17];
    p.angle = get<int16_t>(rec + 18);
    p.sourceId = get<uint16_t>(rec + 20);
    p.gps = get<int64_t>(rec + 22);
    p.gpsChange = false;
    return p;
}

void LazPoint14Codec::pack(const Point& p, uint8_t* rec) {
    put(rec, p.x);
    put(rec + 4, p.y);
    put(rec + 8, p.z);
    put(rec + 12, p.intensity);
    rec[14] = uint8_t(p.r | p.n << 4);
    rec[15] = uint8_t(p.classFlags | p.channel << 4 | p.scanDir << 6 | p.edge << 7);
    rec[16] = p.cls;
    rec[17] = p.user;
    put(rec + 18, p.angle);
    put(rec + 20, p.sourceId);
    put(rec + 22, p.gps);
}

template <class Coder> bool LazPoint14Codec::code(Coder* const* layers, bool* used, uint8_t* rec) {
    constexpr bool enc = Coder::kEncodes;
    Point cur{};
    if (enc) cur = unpack(rec);
    Context* ctx = m_contexts[m_current].get();
    Coder& xy = *layers[XY];
    const Point& prev = ctx->last;
    const int lpr = (prev.r == 1 ? 1 : 0) + (prev.r >= prev.n ? 2 : 0) + (prev.gpsChange ? 4 : 0);
    uint32_t changed = 0;
    if (enc) {
        const Context* next = m_contexts[cur.channel].get();
        const Point& ref = cur.channel != m_current && next ? next->last : prev;
        changed = uint32_t(cur.channel != m_current) << 6 | uint32_t(cur.sourceId != ref.sourceId) << 5 |
                  uint32_t(cur.gps != ref.gps) << 4 | uint32_t(cur.angle != ref.angle) << 3 |
                  uint32_t(cur.n != ref.n) << 2;
        if (cur.r != ref.r) changed |= cur.r == ((ref.r + 1) & 15) ? 1 : cur.r == ((ref.r + 15) & 15) ? 2 : 3;
    }
    changed = xy.symbol(*ctx->changed[lpr], changed);
    if (changed & 64) {
        const int step = int(xy.symbol(m_channel, enc ? uint32_t((cur.channel - m_current + 3) & 3) : 0));
        const int channel = (m_current + step + 1) & 3;
        if (!m_contexts[channel]) {
            start(channel, ctx->last);
        } else {
            m_current = channel;
            m_contexts[channel]->last.channel = uint8_t(channel);
        }
        ctx = m_contexts[channel].get();
    }
    Point& last = ctx->last;
    const bool sourceChange = changed & 32, gpsChange = changed & 16, angleChange = changed & 8;
    const int lastN = last.n, lastR = last.r;
    const int n = changed & 4 ? int(xy.symbol(ctx->model(ctx->returns, lastN, 16), cur.n)) : lastN;
    int r = lastR;
    switch (changed & 3) {
    case 1: r = (lastR + 1) & 15; break;
    case 2: r = (lastR + 15) & 15; break;
    case 3:
        if (gpsChange)
            r = int(xy.symbol(ctx->model(ctx->returnNumber, lastR, 16), cur.r));
        else
            r = (lastR + int(xy.symbol(ctx->returnNumberGpsSame, uint32_t((cur.r - lastR + 14) & 15))) + 2) & 15;
        break;
    default: break;
    }
    last.n = uint8_t(n);
    last.r = uint8_t(r);
    const int m = kReturnMap6[n][r], l = returnLevel(n, r);
    const int cpr = (r == 1 ? 2 : 0) + (r >= n ? 1 : 0);
    const int median = (m << 1) | (gpsChange ? 1 : 0);

    int32_t diff = ctx->dx.code(xy, ctx->xMedian[median].get(), minus(cur.x, last.x), n == 1);
    last.x = plus(last.x, diff);
    ctx->xMedian[median].add(diff);
    uint32_t k = ctx->dx.k();
    diff = ctx->dy.code(xy, ctx->yMedian[median].get(), minus(cur.y, last.y), (n == 1) + int(k < 20 ? k & ~1u : 20));
    last.y = plus(last.y, diff);
    ctx->yMedian[median].add(diff);

    // A layer is coded when the encoder sees a change or the decoder has bytes for it.
    auto take = [&](Layer layer, bool differs) {
        if (enc) used[layer] = used[layer] || differs;
        return enc || used[layer];
    };
    if (take(Z, cur.z != last.z)) {
        k = (ctx->dx.k() + ctx->dy.k()) / 2;
        last.z = ctx->z.code(*layers[Z], ctx->lastZ[l], cur.z, (n == 1) + int(k < 18 ? k & ~1u : 18));
        ctx->lastZ[l] = last.z;
    }
    if (take(Class, cur.cls != last.cls)) {
        const int ccc = ((last.cls & 0x1F) << 1) + (cpr == 3 ? 1 : 0);
        last.cls = uint8_t(layers[Class]->symbol(ctx->model(ctx->cls, ccc, 256), cur.cls));
    }
    const int curFlags = cur.edge << 5 | cur.scanDir << 4 | cur.classFlags;
    const int lastFlags = last.edge << 5 | last.scanDir << 4 | last.classFlags;
    if (take(Flags, curFlags != lastFlags)) {
        const uint32_t f = layers[Flags]->symbol(ctx->model(ctx->flags, lastFlags, 64), uint32_t(curFlags));
        last.edge = (f >> 5) & 1;
        last.scanDir = (f >> 4) & 1;
        last.classFlags = f & 15;
    }
    if (take(Intensity, cur.intensity != last.intensity)) {
        const int at = (cpr << 1) | (gpsChange ? 1 : 0);
        last.intensity = uint16_t(ctx->intensity.code(*layers[Intensity], ctx->lastIntensity[at], cur.intensity, cpr));
        ctx->lastIntensity[at] = last.intensity;
    }
    if (take(ScanAngle, angleChange) && angleChange)
        last.angle = int16_t(ctx->angle.code(*layers[ScanAngle], last.angle, cur.angle, gpsChange ? 1 : 0));
    if (take(UserData, cur.user != last.user))
        last.user = uint8_t(layers[UserData]->symbol(ctx->model(ctx->user, last.user / 4, 256), cur.user));
    if (take(SourceId, sourceChange) && sourceChange)
        last.sourceId = uint16_t(ctx->sourceId.code(*layers[SourceId], last.sourceId, cur.sourceId, 0));
    if (take(GpsTime, gpsChange) && gpsChange) {
        int64_t t = cur.gps;
        if (!ctx->gps.code(*layers[GpsTime], t)) return false;
        last.gps = t;
    }
    if (!enc) pack(last, rec);
    last.gpsChange = gpsChange;
    return true;
}

template bool LazPoint14Codec::code<LazDecoder>(LazDecoder* const*, bool*, uint8_t*);
template bool LazPoint14Codec::code<LazEncoder>(LazEncoder* const*, bool*, uint8_t*);

}  // namespace ptCloud
