// Ctrl-C as a wish to end, so that what has been begun is finished.
#ifndef KEL_NN_TOOLS_INTERRUPTION_H_
#define KEL_NN_TOOLS_INTERRUPTION_H_

namespace kelnn_cli {

void catch_interruption();  // the first time; the second one ends the process
bool is_interrupted();

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_INTERRUPTION_H_
