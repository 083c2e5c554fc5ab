// crt.cpp - CRT statements and system messages.
#include "runtime/config/message.h"
#include "runtime/process/output.h"
#include "runtime/terminal/input.h"
#include "runtime/terminal/terminal.h"

using velda::write_output;

void VLibFCRTBEGIN(DP *) {}

void VLibFCRTEND(DP *dp) {
    if (velda::output_is_terminal(dp)) velda::flush_output(dp);
}

void VLibFCRT_VB(DP *dp, const VAR *value) { write_output(dp, value->view()); }

void VLibFCRTN_VB(DP *dp, const VAR *value) {
    write_output(dp, value->view());
    write_output(dp, "\n");
}

void VLibFCRTCR(DP *dp) { write_output(dp, "\n"); }

void VLibFPRINTERR_VBB(DP *dp, const VAR *message, const VAR *) { velda::print_message(dp, message->view()); }

void VLibFINPUTERR_VB(DP *dp, const VAR *message) {
    velda::show_at_foot(dp, velda::format_message(dp, message->view()));
}
