#pragma once

/// Every verb of the command, in the order of its help: X(name, function in this folder that adds it).
#define KELSRC_VERBS(X)                                                                                      \
    X(convert, addConvert)                                                                                   \
    X(info, addInfo)                                                                                         \
    X(validate, addValidate)                                                                                 \
    X(export, addExport)                                                                                     \
    X(diff, addDiff)                                                                                         \
    X(view, addView)
