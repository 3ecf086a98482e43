#pragma once

#include <cstdint>

namespace ptCloud {

// Running median of the last five values, kept sorted with one insertion
// per value (alternately pushing out the lowest and the highest).
class LazMedian5 {
public:
    int32_t get() const { return m_v[2]; }
    void add(int32_t v) {
        if (m_high) {
            if (v < m_v[2]) {
                m_v[4] = m_v[3];
                m_v[3] = m_v[2];
                if (v < m_v[0]) {
                    m_v[2] = m_v[1];
                    m_v[1] = m_v[0];
                    m_v[0] = v;
                } else if (v < m_v[1]) {
                    m_v[2] = m_v[1];
                    m_v[1] = v;
                } else {
                    m_v[2] = v;
                }
            } else {
                if (v < m_v[3]) {
                    m_v[4] = m_v[3];
                    m_v[3] = v;
                } else {
                    m_v[4] = v;
                }
                m_high = false;
            }
        } else {
            if (m_v[2] < v) {
                m_v[0] = m_v[1];
                m_v[1] = m_v[2];
                if (m_v[4] < v) {
                    m_v[2] = m_v[3];
                    m_v[3] = m_v[4];
                    m_v[4] = v;
                } else if (m_v[3] < v) {
                    m_v[2] = m_v[3];
                    m_v[3] = v;
                } else {
                    m_v[2] = v;
                }
            } else {
                if (m_v[1] < v) {
                    m_v[0] = m_v[1];
                    m_v[1] = v;
                } else {
                    m_v[0] = v;
                }
                m_high = true;
            }
        }
    }

private:
    int32_t m_v[5] = {0, 0, 0, 0, 0};
    bool m_high = true;
};

}  // namespace ptCloud
