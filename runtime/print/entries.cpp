// entries.cpp - the entries of print units.
#include "runtime/print/print.h"
#include "runtime/print/unit.h"
#include "runtime/process/context.h"

namespace {

velda::PrintUnit &unit_of(DP *dp, int number) { return dp->state<velda::PrintUnits>().unit(number); }

void set_printer(velda::PrintUnit &unit, int state) {
    switch (state) {
        case VELDA_PRINTER_OFF:
            unit.switch_to(velda::PrintTarget::Terminal);
            break;
        case VELDA_PRINTER_ON:
            unit.switch_to(velda::PrintTarget::Printer);
            break;
        case VELDA_PRINTER_CLOSE:
            unit.close_job();
            break;
        case VELDA_PRINTER_RESET:
            unit.close_job();
            unit.switch_to(velda::PrintTarget::Terminal);
            unit.set_heading({});
            unit.set_footing({});
            break;
        default:
            break;
    }
}

}  // namespace

void VLibFPRINT_VIB(DP *dp, int unit, const VAR *value) { unit_of(dp, unit).print(value->view()); }

void VLibFPRINTN_VIB(DP *dp, int unit, const VAR *value) {
    velda::PrintUnit &print_unit = unit_of(dp, unit);
    print_unit.print(value->view());
    print_unit.print("\n");
}

void VLibFPRINTCR_VI(DP *dp, int unit) { unit_of(dp, unit).print("\n"); }

void VLibFPRINTER_VII(DP *dp, int unit, int state) {
    if (unit >= 0) {
        set_printer(unit_of(dp, unit), state);
        return;
    }
    for (auto &[number, print_unit] : dp->state<velda::PrintUnits>().all()) set_printer(print_unit, state);
}

void VLibFHEADING_FOOTING_VIIB(DP *dp, int unit, int selector, const VAR *text) {
    const velda::Heading heading(text->view());
    if (selector == VELDA_HEADING)
        unit_of(dp, unit).set_heading(heading);
    else
        unit_of(dp, unit).set_footing(heading);
}

void VLibFPAGE_VI(DP *dp, int unit) { unit_of(dp, unit).new_page(); }
