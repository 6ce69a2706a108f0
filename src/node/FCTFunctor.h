// Member-function functors: the one callback form of the program. Each holds a
// target object and a member function and has one virtual call operator, so a
// list of listeners can mix targets of different classes.
#pragma once

template <class A1>
class FCTFunctor1VBase {
public:
    virtual ~FCTFunctor1VBase() = default;
    virtual void operator()(A1 a1) = 0;
};

template <class T, class A1>
class FCTFunctor1V : public FCTFunctor1VBase<A1> {
public:
    using Method = void (T::*)(A1);
    FCTFunctor1V(T* target, Method m) : m_target(target), m_method(m) {}
    void operator()(A1 a1) override { (m_target->*m_method)(a1); }
    T* target() const { return m_target; }

private:
    T* m_target;
    Method m_method;
};

template <class A1, class A2>
class FCTFunctor2VBase {
public:
    virtual ~FCTFunctor2VBase() = default;
    virtual void operator()(A1 a1, A2 a2) = 0;
};

template <class T, class A1, class A2>
class FCTFunctor2V : public FCTFunctor2VBase<A1, A2> {
public:
    using Method = void (T::*)(A1, A2);
    FCTFunctor2V(T* target, Method m) : m_target(target), m_method(m) {}
    void operator()(A1 a1, A2 a2) override { (m_target->*m_method)(a1, a2); }
    T* target() const { return m_target; }

private:
    T* m_target;
    Method m_method;
};

template <class A1, class A2, class A3>
class FCTFunctor3VBase {
public:
    virtual ~FCTFunctor3VBase() = default;
    virtual void operator()(A1 a1, A2 a2, A3 a3) = 0;
};

template <class T, class A1, class A2, class A3>
class FCTFunctor3V : public FCTFunctor3VBase<A1, A2, A3> {
public:
    using Method = void (T::*)(A1, A2, A3);
    FCTFunctor3V(T* target, Method m) : m_target(target), m_method(m) {}
    void operator()(A1 a1, A2 a2, A3 a3) override { (m_target->*m_method)(a1, a2, a3); }

private:
    T* m_target;
    Method m_method;
};

template <class R, class A1>
class FCTFunctor1RBase {
public:
    virtual ~FCTFunctor1RBase() = default;
    virtual R operator()(A1 a1) = 0;
};

template <class T, class R, class A1>
class FCTFunctor1R : public FCTFunctor1RBase<R, A1> {
public:
    using Method = R (T::*)(A1);
    FCTFunctor1R(T* target, Method m) : m_target(target), m_method(m) {}
    R operator()(A1 a1) override { return (m_target->*m_method)(a1); }

private:
    T* m_target;
    Method m_method;
};

class ScnNode;
// The listener type of node events: event index and the node that raised it.
using ScnListener = FCTFunctor2VBase<int, ScnNode*>;
