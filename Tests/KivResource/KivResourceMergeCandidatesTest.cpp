#include <gtest/gtest.h>

#include "KivResource/KivResourceMergeCandidates.h"
#include "KivResource/KivResourceObject.h"

namespace {

using kiv::MergeCandidates;
using kiv::ResourceArray;
using kiv::ResourceList;

std::shared_ptr<KivResource> plain(const std::string& identifier) {
  return KivResource::initWithDictionary_engine(
      {{"name", "n"}, {"type", "t"}, {"banner_id", identifier}, {"priority", 1}, {"updated", 1}},
      "e");
}

TEST(MergeCandidatesTest, TakesEachResourceOnceInTheRegistrysOrder) {
  const auto first = plain("a");
  const auto other = plain("b");
  const auto second = plain("a");
  MergeCandidates candidates(ResourceList({first, other, second}));
  EXPECT_EQ(candidates.take("a"), first);
  EXPECT_EQ(candidates.take("a"), second);
  EXPECT_EQ(candidates.take("a"), nullptr);
  EXPECT_EQ(candidates.take("nobody"), nullptr);
  EXPECT_EQ(candidates.rest(), ResourceArray{other});
}

TEST(MergeCandidatesTest, TakingAnObjectTakesItAtEveryPlaceWhereItStands) {
  const auto twice = plain("a");
  const auto other = plain("a");
  MergeCandidates candidates(ResourceList({twice, other, twice}));
  EXPECT_EQ(candidates.take("a"), twice);
  EXPECT_EQ(candidates.rest(), ResourceArray{other});
  EXPECT_EQ(candidates.take("a"), other);
  EXPECT_EQ(candidates.take("a"), nullptr);
}

TEST(MergeCandidatesTest, WhatIsNotTakenRestsAsOftenAsItStands) {
  const auto twice = plain("a");
  const auto other = plain("b");
  MergeCandidates candidates(ResourceList({twice, other, twice}));
  EXPECT_EQ(candidates.rest(), (ResourceArray{twice, other, twice}));
}

TEST(MergeCandidatesTest, AnEmptyIdentifierIsAnIdentifier) {
  const auto nameless = plain("");
  MergeCandidates candidates(ResourceList({nameless}));
  EXPECT_EQ(candidates.take(""), nameless);
}

TEST(MergeCandidatesTest, TheRegistryMayChangeMeanwhile) {
  const auto a = plain("a");
  ResourceList registry({a});
  MergeCandidates candidates(registry);
  registry.remove(a);
  registry.append(plain("b"));
  EXPECT_EQ(candidates.take("b"), nullptr);
  EXPECT_EQ(candidates.take("a"), a);
}

}  // namespace
