#include "tool/trial.h"

#include "tool/error.h"

#include <utility>

namespace yfs::tool {

namespace {

image_pair images_of(const session& set, bytes working_copy::*state)
{
    return {set.yfs ? (*set.yfs).*state : bytes(), set.efs ? (*set.efs).*state : bytes()};
}

} // namespace

trial try_edit(session& set, const options& given)
{
    trial out;
    flash_recorder recorder;
    changes done(set, given.change);
    out.what = given.how(set, given, done);
    out.before = images_of(set, &working_copy::before);
    out.after = images_of(set, &working_copy::now);

    image_pair now = out.before;
    for (const flash_operation& operation : recorder.operations()) {
        if (now == out.after) return out;
        operation.apply(now.of(operation.medium));
        out.operations.push_back(operation);
    }
    if (now != out.after)
        throw failure(fault::library, "the edit's operations on the flash don't add up to its result");
    return out;
}

} // namespace yfs::tool
