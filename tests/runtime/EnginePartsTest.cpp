#include <gtest/gtest.h>

#include <vector>

#include "node/ScnNode.h"
#include "runtime/BITSet.h"
#include "runtime/Clock.h"
#include "runtime/RtnSelection.h"
#include "runtime/TokenQueue.h"

TEST(BitMap, IteratesSetSlotsFromLowToHigh)
{
    BITMap<int*> map;
    int a = 1, b = 2, c = 3;
    EXPECT_TRUE(map.empty());
    map.put(31, &c);
    map.put(0, &a);
    map.put(7, &b);
    map.put(9, &b);
    map.put(9, nullptr);  // null clears the bit
    std::vector<int> order;
    map.begin();
    for (int* v = map.nextValue(); v; v = map.nextValue()) order.push_back(*v);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(map.mask, (1u << 0) | (1u << 7) | (1u << 31));
    map.clear();
    EXPECT_TRUE(map.empty());
    EXPECT_EQ(map.get(7), nullptr);
    map.begin();
    EXPECT_EQ(map.next(), -1);
}

TEST(TokenQueue, KeepsArrivalOrderThroughGrowthAndRemoval)
{
    TokenQueue q;
    EXPECT_EQ(q.first(), nullptr);
    ScnNode n[6];
    for (ScnNode& x : n) q.push(&x);
    EXPECT_EQ(q.size(), 6u);
    EXPECT_EQ(q.capacity(), 8u);
    EXPECT_EQ(q.first(), &n[0]);
    EXPECT_TRUE(q.remove(&n[2]));
    EXPECT_FALSE(q.remove(&n[2]));
    EXPECT_EQ(q.size(), 5u);
    EXPECT_EQ(q.at(2), &n[3]);
    EXPECT_TRUE(q.remove(&n[0]));
    EXPECT_EQ(q.first(), &n[1]);  // the oldest stays in front
    q.push(&n[0]);
    EXPECT_EQ(q.at(4), &n[0]);
    // The same node twice is two entries; removal takes the first.
    q.push(&n[1]);
    EXPECT_TRUE(q.remove(&n[1]));
    EXPECT_EQ(q.first(), &n[3]);
    EXPECT_EQ(q.at(q.size() - 1), &n[1]);
    while (!q.empty()) q.remove(q.first());
    EXPECT_EQ(q.first(), nullptr);
}

namespace {
struct Watcher {
    std::vector<unsigned> seen;
    void onChange(RtnSelection& s)
    {
        for (unsigned bit = 1; bit <= 0x2000; bit <<= 1)
            if (s.has(static_cast<RtnSelection::Event>(bit))) seen.push_back(bit);
    }
};
}  // namespace

TEST(Selection, EachChangeRaisesOneBitAndNodeChangesDeselectFirst)
{
    RtnSelection& sel = RtnSelection::instance();
    Watcher w;
    FCTFunctor1V<Watcher, RtnSelection&> f(&w, &Watcher::onChange);
    ASSERT_TRUE(sel.addObserver(&f));
    ScnNode a, b;
    sel.setNode(&a);
    sel.setNode(&b);
    sel.setFunction(2);
    sel.beginRebuild();
    EXPECT_EQ(sel.node, nullptr);
    sel.endRebuild();
    EXPECT_EQ(sel.node, &b);
    sel.setNode(nullptr);
    sel.removeObserver(&f);
    EXPECT_EQ(w.seen, (std::vector<unsigned>{0x400, 0x800, 0x400, 0x8, 0x100, 0x800, 0x400, 0x200, 0x800}));
    EXPECT_EQ(sel.bits.mask, 0u);  // restored after delivery
}

TEST(Ticker, CountsFramesSetsTheRunningValueAndAimsAt25ms)
{
    ManualClock clock;
    int frames = 0;
    uint32_t frameCost = 10;
    Ticker t(clock, [&] {
        ++frames;
        clock.advance(frameCost);
    });
    uint32_t before = Engine::frameCounter;
    EXPECT_EQ(t.tick(), 15u);
    EXPECT_EQ(Engine::running, 0);
    t.simulationOn = true;
    frameCost = 40;  // a slow frame is followed at once
    EXPECT_EQ(t.tick(), 0u);
    EXPECT_EQ(Engine::running, 25);
    EXPECT_EQ(Engine::frameCounter - before, 2u);
    EXPECT_EQ(Engine::lastTickTime, 10u);
    EXPECT_EQ(frames, 2);
}
