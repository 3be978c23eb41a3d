/* SPDX-License-Identifier: Apache-2.0 */
/* Signed model directories: the check that belongs before the first _init.
 *
 *     char problem[200];
 *     if (kel_nn_kit_verify_models("models/", KEY, problem, sizeof(problem)) != 0) {
 *       fprintf(stderr, "models: %s\n", problem);
 *       return EXIT_FAILURE;
 *     }
 *
 * `kelnn sign` signs a directory on a PC. The check is in libkelnn_kit_verify.a, which needs libsodium and nothing of the
 * library. docs/security.md says what it is worth.
 */
#ifndef KEL_NN_KIT_VERIFY_H_
#define KEL_NN_KIT_VERIFY_H_

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The file of a model directory that lists and signs the others. */
#define KEL_NN_KIT_SIGNATURE_FILE "kelnn-models.sig"

/** Is a model directory as it was when it was signed?
 *
 *  directory   With "/" at its end or without.
 *  public_key  64 hexadecimal digits: the last line of the file KEY.pub that `kelnn sign --new-key` wrote.
 *  problem     Receives what is wrong, with the name of the file, in at most `size` bytes; NULL if that is not wanted.
 *  returns     0, or -1: no signature, one by another key, a file that was changed, added, renamed, is missing or is a
 *              link, an argument that is NULL or no key, or memory that is short.
 *  threads     Any; the directory should be written by nobody until its models are loaded.
 */
int kel_nn_kit_verify_models(const char* directory, const char* public_key, char* problem,
                             size_t size);

#ifdef __cplusplus
}
#endif

#endif /* KEL_NN_KIT_VERIFY_H_ */
