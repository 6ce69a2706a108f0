// The tokens of a register in order of arrival: a circular queue whose head
// never moves, so the oldest token is always in the first slot.
#pragma once

#include <cstdint>
#include <memory>

class ScnNode;

class TokenQueue {
public:
    TokenQueue() : m_buf(new ScnNode*[1]()), m_capacity(1) {}

    void push(ScnNode* n)
    {
        m_buf[m_tail] = n;
        m_tail = (m_tail + 1) % m_capacity;
        if (m_tail == m_head) {  // full: double
            std::unique_ptr<ScnNode*[]> bigger(new ScnNode*[m_capacity * 2]());
            for (uint32_t i = 0; i < m_capacity; ++i) bigger[i] = m_buf[(m_head + i) % m_capacity];
            m_buf = std::move(bigger);
            m_head = 0;
            m_tail = m_capacity;
            m_capacity *= 2;
        }
    }

    // Removes the first occurrence, keeping the order of the others.
    bool remove(ScnNode* n)
    {
        for (uint32_t i = m_head; i != m_tail; i = (i + 1) % m_capacity) {
            if (m_buf[i] != n) continue;
            for (uint32_t j = i; (j + 1) % m_capacity != m_tail; j = (j + 1) % m_capacity)
                m_buf[j] = m_buf[(j + 1) % m_capacity];
            m_tail = (m_tail + m_capacity - 1) % m_capacity;
            m_buf[m_tail] = nullptr;
            return true;
        }
        return false;
    }

    uint32_t size() const { return (m_tail + m_capacity - m_head) % m_capacity; }
    bool empty() const { return m_head == m_tail; }
    // The oldest token, or null.
    ScnNode* first() const { return empty() ? nullptr : m_buf[m_head]; }
    ScnNode* at(uint32_t i) const { return i < size() ? m_buf[(m_head + i) % m_capacity] : nullptr; }
    uint32_t capacity() const { return m_capacity; }

private:
    std::unique_ptr<ScnNode*[]> m_buf;
    uint32_t m_capacity;
    uint32_t m_head = 0, m_tail = 0;
};
