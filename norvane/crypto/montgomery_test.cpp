#include "norvane/crypto/montgomery.h"

#include <gtest/gtest.h>

#include "norvane/crypto/pki_test_util.h"
