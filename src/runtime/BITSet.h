// Bit words: a 32-bit set with a scan cursor, and a map from the 32 bit
// positions to values. Iteration costs one step per set bit.
#pragma once

#include <cstdint>

class BITSet {
public:
    virtual ~BITSet() = default;
    virtual void clear() { mask = 0; }

    bool test(int bit) const { return bit >= 0 && bit < 32 && (mask >> bit) & 1u; }
    void set(int bit) { if (bit >= 0 && bit < 32) mask |= 1u << bit; }
    void reset(int bit) { if (bit >= 0 && bit < 32) mask &= ~(1u << bit); }
    bool empty() const { return mask == 0; }

    // Scan: begin(), then next() gives the set bits from lowest to highest and
    // -1 at the end.
    void begin()
    {
        m_work = mask;
        m_index = -1;
    }
    int next()
    {
        if (!m_work) return -1;
        while (!(m_work & 1u)) {
            m_work >>= 1;
            ++m_index;
        }
        ++m_index;
        m_work >>= 1;
        return m_index;
    }

    uint32_t mask = 0;

private:
    uint32_t m_work = 0;
    int m_index = -1;
};

template <class T>
class BITMap : public BITSet {
public:
    void clear() override
    {
        BITSet::clear();
        for (T& v : m_values) v = T{};
    }
    // A null value clears the bit.
    void put(int i, T v)
    {
        if (i < 0 || i >= 32) return;
        m_values[i] = v;
        if (v)
            set(i);
        else
            reset(i);
    }
    T get(int i) const { return i >= 0 && i < 32 ? m_values[i] : T{}; }
    // The next element of a scan, or a null value at the end.
    T nextValue()
    {
        int i = next();
        return i < 0 ? T{} : m_values[i];
    }

private:
    T m_values[32] = {};
};
