// SPDX-License-Identifier: Apache-2.0
// A signed directory has a file of lines:
//
//     kelnn models 1
//     SIZE SHA-256 NAME        for every other file
//     signature ED25519        of all bytes in front of this line
#ifndef KEL_NN_SIGNATURE_FILE_H_
#define KEL_NN_SIGNATURE_FILE_H_

#include <sodium.h>

#include <cstddef>

namespace kelnn {

constexpr char kSignatureFirstLine[] = "kelnn models 1\n", kSignatureLastWord[] = "signature ";
constexpr size_t kSignatureLineSize = sizeof(kSignatureLastWord) - 1 + 2 * crypto_sign_BYTES + 1;
constexpr size_t kMaxSignatureFile = 256 << 10;  // less than this is read

}  // namespace kelnn

#endif  // KEL_NN_SIGNATURE_FILE_H_
