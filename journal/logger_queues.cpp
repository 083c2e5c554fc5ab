// The names of the queues by which a duplicator may be fed.
#include "journal/logger_admin.h"

namespace velda::journal {

namespace {

// In the order of the configuration's names.
enum Queue { Manager, Data, Control, ControlReply, DataListener, ServerManager, ServerControl, ServerReply };

struct QueueTexts {
    const char *set;
    const char *removed;
};

// Deliberate: the two reply queues report the name of the control queue of their side, and two texts have a second
// blank. Operators' scripts know them so.
constexpr QueueTexts Texts[VELDA_LOGGER_QUEUE_NAMES] = {
    {"MQ Queue Manager now set to '%s'", "MQ Queue Manager REMOVED"},
    {"MQ Data Queue now set to '%s'", "MQ Data Queue REMOVED"},
    {"MQ Control Queue now set to '%s'", "MQ Control Queue REMOVED"},
    {"MQ Control Queue Reply now set to '%s'", "MQ Control Reply Queue REMOVED"},
    {"MQ Data Listener Queue now set to '%s'", "MQ Data Listener Queue REMOVED"},
    {"MQ Server Manager now set to '%s'", "MQ Server Manager REMOVED"},
    {"MQ Server Control Queue now set to '%s'", "MQ Server Control  Queue REMOVED"},
    {"MQ Server Reply Queue now set to '%s'", "MQ Server Reply  Queue REMOVED"},
};

// Whose name the "now set" line shows.
constexpr Queue ShownName[VELDA_LOGGER_QUEUE_NAMES] = {Manager,      Data,          Control,       Control,
                                                       DataListener, ServerManager, ServerControl, Control};

int set_queue(DP *dp, Queue queue, const VAR *name) {
    LoggerContext &context = logger_context(dp);
    if (!map_logger(dp, context)) return 0;
    auto &names = context.config->mqNames;
    constexpr size_t Longest = sizeof names[0] - 1;
    const std::string text = name->str().substr(0, Longest);
    std::memset(names[queue], 0, Longest);
    std::memcpy(names[queue], text.data(), text.size());
    // The data queue relies on the last byte being zero since the record was made.
    if (queue != Data) names[queue][Longest] = 0;
    LoggerSaveConfig(dp);
    if (names[queue][0] == 0)
        VediLoggerError(dp, 0, "%s", Texts[queue].removed);
    else
        VediLoggerError(dp, 0, Texts[queue].set, logger_text(names[ShownName[queue]], sizeof names[0]).c_str());
    return 0;
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

int VELDALoggerSetMQMgr(DP *dp, const VAR *name) { return set_queue(dp, Manager, name); }
int VELDALoggerSetMQDataQ(DP *dp, const VAR *name) { return set_queue(dp, Data, name); }
int VELDALoggerSetMQCtrlQ(DP *dp, const VAR *name) { return set_queue(dp, Control, name); }
int VELDALoggerSetMQCtrlReplyQ(DP *dp, const VAR *name) { return set_queue(dp, ControlReply, name); }
int VELDALoggerSetMQDataListenQ(DP *dp, const VAR *name) { return set_queue(dp, DataListener, name); }
int VELDALoggerSetMQSvrMgr(DP *dp, const VAR *name) { return set_queue(dp, ServerManager, name); }
int VELDALoggerSetMQSvrControlQ(DP *dp, const VAR *name) { return set_queue(dp, ServerControl, name); }
int VELDALoggerSetMQSvrReplyQ(DP *dp, const VAR *name) { return set_queue(dp, ServerReply, name); }
