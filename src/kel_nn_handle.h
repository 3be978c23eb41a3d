// SPDX-License-Identifier: Apache-2.0
// What a handle is made of: one graph for every model slot. All zero means that no task is
// initialised.
#ifndef KEL_NN_HANDLE_H_
#define KEL_NN_HANDLE_H_

#include "kel_nn.h"

struct kel_nn_handle {
  uint32_t reserved;  // nothing reads or writes it
  kel_nn_graph graph_facedet;
  kel_nn_graph graph_face_classify;
  kel_nn_graph graph_facelm;
  kel_nn_graph graph_facercg;
  kel_nn_graph graph_crydet;
  kel_nn_graph graph_spare;  // no task uses it
  kel_nn_graph graph_persondet;
  kel_nn_graph graph_person_classify;
  kel_nn_graph graph_4clsdet;
};

#endif  // KEL_NN_HANDLE_H_
