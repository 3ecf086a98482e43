#include "LazChunkCodec.h"

#include <QtEndian>
#include <cstring>
#include <memory>

#include "LazDecoder.h"
#include "LazEncoder.h"
#include "LazGpsCodec.h"
#include "LazPoint10Decoder.h"
#include "LazPoint14Codec.h"
#include "LazRgbCodec.h"
#include "LazWaveCodec.h"

namespace ptCloud {

namespace {

// Decoders may read a few bytes past their stream; more means the stream
// did not hold what the header promised.
const size_t kOverrunSlack = 16;

int layersOf(const LazFormat::Item& item) {
    switch (item.type) {
    case LazFormat::Point14: return LazPoint14Codec::LayerCount;
    case LazFormat::RgbNir14: return 2;
    case LazFormat::Byte14: return item.size;
    default: return 1;
    }
}

// Extra bytes: each byte as its difference from the last one, modulo 256.
struct ByteCodec {
    explicit ByteCodec(int n) { models.reserve(size_t(n)); for (int i = 0; i < n; ++i) models.emplace_back(256); }
    template <class Coder> uint8_t code(Coder& c, int i, uint8_t last, uint8_t cur) {
        return uint8_t(last + c.symbol(models[size_t(i)], uint8_t(cur - last)));
    }
    std::vector<LazSymbolModel> models;
};

}  // namespace

LazChunkCodec::LazChunkCodec(const LazFormat& format, int recordLength) : m_format(format), m_recordLength(recordLength) {
    for (const LazFormat::Item& it : format.items) m_layerCount += layersOf(it);
}

bool LazChunkCodec::decode(const uint8_t* data, size_t size, uint32_t count, uint32_t wanted, uint8_t* out,
                           QString* why) const {
    if (wanted == 0) return true;
    if (size < size_t(m_recordLength)) {
        *why = QStringLiteral("LAZ chunk of %1 bytes is shorter than its first point").arg(size);
        return false;
    }
    if (m_format.compressor != LazFormat::LayeredChunked) return decodePointWise(data, size, wanted, out, why);
    std::memcpy(out, data, size_t(m_recordLength));
    if (wanted == 1 && count == 1) return true;
    size_t at = size_t(m_recordLength);
    const size_t headBytes = 4 + 4 * size_t(m_layerCount);
    if (size - at < headBytes) {
        *why = QStringLiteral("LAZ chunk ends inside its layer table");
        return false;
    }
    const uint32_t inChunk = qFromLittleEndian<quint32>(data + at);
    if (inChunk != count) {
        *why = QStringLiteral("LAZ chunk holds %1 points where the chunk table says %2").arg(inChunk).arg(count);
        return false;
    }
    at += 4;
    std::vector<uint32_t> sizes(static_cast<size_t>(m_layerCount));
    uint64_t total = 0;
    for (uint32_t& s : sizes) {
        s = qFromLittleEndian<quint32>(data + at);
        at += 4;
        total += s;
    }
    if (total > size - at) {
        *why = QStringLiteral("LAZ chunk layers need %1 bytes, the chunk has %2").arg(total).arg(size - at);
        return false;
    }
    std::vector<LazDecoder> decoders(sizes.size());
    std::vector<LazDecoder*> layers(sizes.size());
    std::unique_ptr<bool[]> used(new bool[sizes.size()]);
    for (size_t i = 0; i < sizes.size(); ++i) {
        decoders[i].start(data + at, sizes[i]);
        at += sizes[i];
        layers[i] = &decoders[i];
        used[i] = sizes[i] != 0;
    }
    if (!codeLayered(layers.data(), used.get(), out, wanted)) {
        *why = QStringLiteral("LAZ chunk is damaged: its points do not decode");
        return false;
    }
    for (size_t i = 0; i < sizes.size(); ++i)
        if (decoders[i].overrun() > kOverrunSlack) {
            *why = QStringLiteral("LAZ chunk is damaged: layer %1 ends early").arg(i + 1);
            return false;
        }
    return true;
}

bool LazChunkCodec::decodePointWise(const uint8_t* data, size_t size, uint32_t wanted, uint8_t* out,
                                    QString* why) const {
    const size_t rec = size_t(m_recordLength);
    std::memcpy(out, data, rec);
    if (wanted == 1) return true;
    // One coder state per item, seeded with the first record.
    std::unique_ptr<LazPoint10Decoder> point;
    std::unique_ptr<LazGpsCodec> gps;
    std::unique_ptr<LazRgbCodec> rgb;
    std::unique_ptr<LazWaveCodec> wave;
    std::unique_ptr<ByteCodec> bytes;
    int offset = 0;
    for (const LazFormat::Item& it : m_format.items) {
        switch (it.type) {
        case LazFormat::Point10: point.reset(new LazPoint10Decoder(data + offset)); break;
        case LazFormat::GpsTime11: gps.reset(new LazGpsCodec(false, qFromLittleEndian<qint64>(data + offset))); break;
        case LazFormat::Rgb12: rgb.reset(new LazRgbCodec); break;
        case LazFormat::Wave13: wave.reset(new LazWaveCodec); break;
        default: bytes.reset(new ByteCodec(it.size)); break;
        }
        offset += it.size;
    }
    LazDecoder d;
    d.start(data + rec, size - rec);
    for (uint32_t i = 1; i < wanted; ++i) {
        uint8_t* cur = out + i * rec;
        const uint8_t* last = cur - rec;
        offset = 0;
        for (const LazFormat::Item& it : m_format.items) {
            uint8_t* field = cur + offset;
            switch (it.type) {
            case LazFormat::Point10: point->decode(d, field); break;
            case LazFormat::GpsTime11: {
                int64_t t = 0;
                if (!gps->code(d, t)) {
                    *why = QStringLiteral("LAZ chunk is damaged: its GPS times do not decode");
                    return false;
                }
                qToLittleEndian(t, field);
                break;
            }
            case LazFormat::Rgb12: {
                uint16_t l[3], c[3];
                std::memcpy(l, last + offset, 6);
                rgb->code(d, l, c);
                std::memcpy(field, c, 6);
                break;
            }
            case LazFormat::Wave13: wave->code(d, last + offset, field); break;
            default:
                for (int b = 0; b < it.size; ++b) field[b] = bytes->code(d, b, last[offset + b], 0);
                break;
            }
            offset += it.size;
        }
        if (d.overrun() > kOverrunSlack) {
            *why = QStringLiteral("LAZ chunk is damaged: it ends after %1 points").arg(i);
            return false;
        }
    }
    return true;
}

template <class Coder>
bool LazChunkCodec::codeLayered(Coder* const* layers, bool* used, uint8_t* records, uint32_t count) const {
    constexpr bool enc = Coder::kEncodes;
    const size_t rec = size_t(m_recordLength);
    // Every item but the point keeps one last value and one set of models
    // per scanner channel, switching along with the point's channel.
    struct Channel {
        std::unique_ptr<LazRgbCodec> rgb;
        std::unique_ptr<LazWaveCodec> wave;
        std::unique_ptr<ByteCodec> bytes;
        std::vector<uint8_t> last;
    };
    struct ItemState {
        LazFormat::Item item;
        int offset = 0, firstLayer = 0;
        int current = -1;
        Channel channels[4];
    };
    LazPoint14Codec point(records);
    std::vector<ItemState> states;
    int offset = 0, layer = 0;
    for (const LazFormat::Item& it : m_format.items) {
        if (it.type != LazFormat::Point14) {
            ItemState s;
            s.item = it;
            s.offset = offset;
            s.firstLayer = layer;
            states.push_back(std::move(s));
        }
        offset += it.size;
        layer += layersOf(it);
    }
    auto enter = [&](ItemState& s, int channel, const uint8_t* first) {
        if (s.current == channel) return;
        Channel& c = s.channels[channel];
        if (c.last.empty()) {
            // A channel's first point continues from the last value of the one before.
            if (s.current >= 0) c.last = s.channels[s.current].last;
            else c.last.assign(first, first + s.item.size);
            if (s.item.type == LazFormat::Byte14) c.bytes.reset(new ByteCodec(s.item.size));
            else if (s.item.type == LazFormat::Wave14) c.wave.reset(new LazWaveCodec);
            else c.rgb.reset(new LazRgbCodec);
        }
        s.current = channel;
    };
    for (ItemState& s : states) enter(s, point.channel(), records + s.offset);
    for (uint32_t i = 1; i < count; ++i) {
        uint8_t* cur = records + i * rec;
        if (!point.code(layers, used, cur)) return false;
        if constexpr (!enc) {
            // A chunk claiming far more points than its bytes hold stops here, not after decoding them all.
            if ((i & 1023) == 0 && layers[LazPoint14Codec::XY]->overrun() > kOverrunSlack) return false;
        }
        for (ItemState& s : states) {
            enter(s, point.channel(), nullptr);
            Channel& c = s.channels[s.current];
            uint8_t* field = cur + s.offset;
            Coder** L = const_cast<Coder**>(layers) + s.firstLayer;
            bool* u = used + s.firstLayer;
            auto take = [&](int k, bool differs) {
                if (enc) u[k] = u[k] || differs;
                return enc || u[k];
            };
            switch (s.item.type) {
            case LazFormat::Rgb14:
            case LazFormat::RgbNir14: {
                uint16_t l[4], v[4];
                std::memcpy(l, c.last.data(), size_t(s.item.size));
                std::memcpy(v, enc ? field : c.last.data(), size_t(s.item.size));
                if (take(0, std::memcmp(l, v, 6) != 0)) c.rgb->code(*L[0], l, v);
                if (s.item.type == LazFormat::RgbNir14 && take(1, l[3] != v[3])) c.rgb->codeNir(*L[1], l[3], v[3]);
                std::memcpy(c.last.data(), v, size_t(s.item.size));
                break;
            }
            case LazFormat::Wave14: {
                uint8_t v[LazWaveCodec::kBytes];
                std::memcpy(v, enc ? field : c.last.data(), sizeof v);
                if (take(0, std::memcmp(v, c.last.data(), sizeof v) != 0)) c.wave->code(*L[0], c.last.data(), v);
                std::memcpy(c.last.data(), v, sizeof v);
                break;
            }
            default:
                for (int b = 0; b < s.item.size; ++b) {
                    uint8_t& last = c.last[size_t(b)];
                    const uint8_t v = enc ? field[b] : last;
                    if (take(b, v != last)) last = c.bytes->code(*L[b], b, last, v);
                }
                break;
            }
            if (!enc) std::memcpy(field, c.last.data(), size_t(s.item.size));
        }
    }
    return true;
}

std::vector<uint8_t> LazChunkCodec::encode(const uint8_t* records, uint32_t count) const {
    const size_t rec = size_t(m_recordLength);
    std::vector<uint8_t> out(records, records + rec);
    if (count <= 1) return out;
    std::vector<LazEncoder> encoders(static_cast<size_t>(m_layerCount));
    std::vector<LazEncoder*> layers(encoders.size());
    std::unique_ptr<bool[]> used(new bool[encoders.size()]);
    for (size_t i = 0; i < encoders.size(); ++i) {
        layers[i] = &encoders[i];
        used[i] = false;
    }
    used[LazPoint14Codec::XY] = true;
    // The codec writes decoded records back only when decoding: a copy is not needed.
    codeLayered(layers.data(), used.get(), const_cast<uint8_t*>(records), count);
    auto put32 = [&](uint32_t v) {
        uint8_t b[4];
        qToLittleEndian(v, b);
        out.insert(out.end(), b, b + 4);
    };
    put32(count);
    for (size_t i = 0; i < encoders.size(); ++i) {
        if (used[i]) encoders[i].finish();
        put32(used[i] ? uint32_t(encoders[i].bytes().size()) : 0);
    }
    for (size_t i = 0; i < encoders.size(); ++i)
        if (used[i]) out.insert(out.end(), encoders[i].bytes().begin(), encoders[i].bytes().end());
    return out;
}

template bool LazChunkCodec::codeLayered<LazDecoder>(LazDecoder* const*, bool*, uint8_t*, uint32_t) const;
template bool LazChunkCodec::codeLayered<LazEncoder>(LazEncoder* const*, bool*, uint8_t*, uint32_t) const;

}  // namespace ptCloud
