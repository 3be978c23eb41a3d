#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The recorder stands in front of every function of a task, of the handle, the model directory and the engine's runs, exports
# nothing else and needs no more than a C library with threads and libstdc++: check_recorder.sh LIBRARY
set -euo pipefail
here=$(dirname "$0")
wanted=$(grep -E '^kel_nn_(handle_|set_model_root_dir$|face_feature_)|^kel_nn_[a-z0-9_]+_(init|deinit|process)$|^kel_nne_(graph_(de)?init|run_graph)$' \
  "$here/exports.txt" | grep -vE '^kel_nn_(mfcc|filter_bank)' | LC_ALL=C sort)
diff <(echo "$wanted") <(nm -D --defined-only "$1" | awk '{print $3}' | LC_ALL=C sort)
needed=$(readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
! grep -vE '^(libc|libstdc\+\+|libgcc_s|libpthread|libdl|libm|ld-linux.*|ld)\.so' <<<"$needed"
