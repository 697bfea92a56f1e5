#include <string>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/http/Redirect.h"

namespace {

using kiv::isPrivateHost;
using kiv::isPublicAddress;

TEST(PrivateAddress, BeginsAndEndsWithItsBlock) {
  for (const char* const address : {"0.0.0.0",     "0.255.255.255",
                                    "10.0.0.0",    "10.255.255.255",
                                    "100.64.0.0",  "100.127.255.255",
                                    "127.0.0.0",   "127.255.255.255",
                                    "169.254.0.0", "169.254.255.255",
                                    "172.16.0.0",  "172.31.255.255",
                                    "192.0.0.0",   "192.0.0.255",
                                    "192.168.0.0", "192.168.255.255",
                                    "224.0.0.0",   "239.255.255.255",
                                    "240.0.0.0",   "255.255.255.255",
                                    "::",          "::1",
                                    "fc00::",      "fdff:ffff::1",
                                    "fe80::",      "febf:ffff::1",
                                    "fec0::1",     "feff:ffff::1",
                                    "ff00::",      "ff02::1",
                                    "64:ff9b:1::", "64:ff9b:1:ffff::8.8.8.8"}) {
    EXPECT_TRUE(isPrivateHost(address)) << address;
    EXPECT_FALSE(isPublicAddress(address)) << address;
  }
}

TEST(PrivateAddress, TheNeighboursOfTheBlocksArePublic) {
  for (const char* const address :
       {"1.0.0.0",      "9.255.255.255",   "11.0.0.0",    "100.63.255.255",
        "100.128.0.0",  "126.255.255.255", "128.0.0.0",   "169.253.255.255",
        "169.255.0.0",  "172.15.255.255",  "172.32.0.0",  "191.255.255.255",
        "192.0.1.0",    "192.167.255.255", "192.169.0.0", "223.255.255.255",
        "198.18.0.1",   "8.8.8.8",         "2000::1",     "2606:4700::1111",
        "fbff:ffff::1", "fe00::1",         "64:ff9b:2::1"}) {
    EXPECT_FALSE(isPrivateHost(address)) << address;
    EXPECT_TRUE(isPublicAddress(address)) << address;
  }
}

TEST(PrivateAddress, AnIPv6AddressThatStandsForAnIPv4AddressIsWhatThatIs) {
  for (const char* const address :
       {"::ffff:127.0.0.1", "::ffff:7f00:1", "::FFFF:10.1.2.3", "0:0:0:0:0:ffff:c0a8:0101",
        "::127.0.0.1", "::10.0.0.1", "64:ff9b::10.0.0.1", "64:ff9b::7f00:1", "2002:7f00:1::1",
        "2002:c0a8:101::", "::ffff:0.0.0.0", "::ffff:169.254.169.254"}) {
    EXPECT_TRUE(isPrivateHost(address)) << address;
    EXPECT_FALSE(isPublicAddress(address)) << address;
  }
  for (const char* const address :
       {"::ffff:8.8.8.8", "64:ff9b::8.8.8.8", "2002:808:808::1", "::ffff:172.32.0.1"}) {
    EXPECT_FALSE(isPrivateHost(address)) << address;
    EXPECT_TRUE(isPublicAddress(address)) << address;
  }
}

TEST(PrivateAddress, BracketsAndZonesDoNotHideOne) {
  EXPECT_TRUE(isPrivateHost("[::1]"));
  EXPECT_TRUE(isPrivateHost("[fe80::1%25eth0]"));
  EXPECT_TRUE(isPrivateHost("fe80::1%eth0"));
  EXPECT_FALSE(isPublicAddress("fe80::1%eth0"));
  EXPECT_TRUE(isPublicAddress("[2606:4700::1111]"));
  EXPECT_TRUE(isPrivateHost("127.0.0.1."));
}

TEST(PrivateAddress, LocalhostIsPrivateAndNoOtherName) {
  for (const char* const name :
       {"localhost", "LocalHost", "localhost.", "a.localhost", "a.b.LOCALHOST."}) {
    EXPECT_TRUE(isPrivateHost(name)) << name;
  }
  for (const char* const name : {"notlocalhost", "localhost.example", "ads.example", "", ".", "[]",
                                 "10.0.0.1.example", "host", "local"}) {
    EXPECT_FALSE(isPrivateHost(name)) << name;
  }
}

TEST(PrivateAddress, WhatIsNoAddressIsNoPublicOne) {
  for (const char* const text :
       {"", "ads.example", "localhost", "8.8.8", "8.8.8.8.8", "8.8.8.256", "::g", "/run/socket"}) {
    EXPECT_FALSE(isPublicAddress(text)) << text;
  }
  EXPECT_FALSE(isPublicAddress(std::string(1000, '8')));
  EXPECT_FALSE(isPrivateHost(std::string(1000, ':')));
}

}  // namespace
