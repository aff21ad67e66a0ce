#include "refhost/live/MulticastRecords.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace test
{
namespace
{

SafePointer<MulticastSessionParameter> makeRecord(const std::string& id, const std::string& member)
{
    const SafePointer<MulticastSessionParameter> record(new MulticastSessionParameter);
    record->setMulticastSessionId(id);
    MulticastMemberSessionParameter entry;
    entry.setMemberSessionId(member);
    record->addMemberSessionParam(entry);
    return record;
}

TEST(MulticastRecords, AFoundRecordIsTheStoredOneItself)
{
    MulticastRecords records;
    records.store(makeRecord("m", "a"));
    SafePointer<MulticastSessionParameter> first;
    SafePointer<MulticastSessionParameter> second;
    ASSERT_TRUE(records.find("m", first));
    first->deleteMemberSessionParam("a");
    ASSERT_TRUE(records.find("m", second));
    EXPECT_FALSE(second->findMemberSession("a"));
}

TEST(MulticastRecords, StoringBackReplacesTheRecordOfTheSameId)
{
    MulticastRecords records;
    records.store(makeRecord("m", "a"));
    records.store(makeRecord("m", "b"));
    SafePointer<MulticastSessionParameter> found;
    ASSERT_TRUE(records.find("m", found));
    EXPECT_TRUE(found->findMemberSession("b"));
    EXPECT_FALSE(found->findMemberSession("a"));
}

TEST(MulticastRecords, AnErasedRecordIsNotFoundAnyMore)
{
    MulticastRecords records;
    records.store(makeRecord("m", "a"));
    records.erase("other");
    EXPECT_TRUE(records.has("m"));
    records.erase("m");
    EXPECT_FALSE(records.has("m"));
    SafePointer<MulticastSessionParameter> found;
    EXPECT_FALSE(records.find("m", found));
    EXPECT_TRUE(found.isEmpty());
}

TEST(MulticastRecords, AMemberLeadsToItsSession)
{
    MulticastRecords records;
    records.store(makeRecord("m", "a"));
    records.store(makeRecord("n", "b"));
    EXPECT_EQ("n", records.sessionOf("b"));
    EXPECT_EQ("m", records.sessionOf("a"));
    EXPECT_EQ("", records.sessionOf("c"));
}

}  // namespace
}  // namespace test
}  // namespace refhost
