#pragma once

#include <atomic>

/// A heap object for handles that counts the living and the deleted objects of its kind.
class Probe
{
public:
    Probe()
    {
        ++living();
    }
    virtual ~Probe() noexcept(false)
    {
        --living();
    }
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;

    virtual int number() const
    {
        return 1;
    }

    static std::atomic<int>& living()
    {
        static std::atomic<int> count{0};
        return count;
    }
};

class DerivedProbe : public Probe
{
public:
    int number() const override
    {
        return 2;
    }
};
