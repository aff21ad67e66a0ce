#pragma once

#include <vector>

#include "refhost/media/EncodedUnit.h"

namespace refhost::test
{

/// Keeps the encoded units that it is given.
class CollectedUnits : public EncodedUnitSink
{
public:
    void onEncodedUnit(const EncodedUnitPtr& unit) override
    {
        units.push_back(unit);
    }
    void onDiscontinuity() override {}

    std::vector<EncodedUnitPtr> units;
};

}  // namespace refhost::test
