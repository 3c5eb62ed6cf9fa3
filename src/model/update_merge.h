// The update merge: applies the members of one configuration object onto
// another of the same type. Updates, boot-status confirmation and the merging
// of stored value columns all use it.
#ifndef SETVAULT_SRC_MODEL_UPDATE_MERGE_H_
#define SETVAULT_SRC_MODEL_UPDATE_MERGE_H_

#include <memory>

#include "setvault/setvault_object.h"

namespace KorvoSetvault {

// Copies every member of `source`'s data into `target`'s data:
// - a member `target` lacks is appended;
// - singleton sub-objects (objects on both sides) merge member by member;
// - instance arrays (a key the id map names, arrays on both sides) merge
//   instance by instance id: a known instance merges member by member, a new
//   one is appended, instances only `target` has stay;
// - anything else replaces the target's value (unless equal), and the
//   replaced member moves to the end.
// Members absent from `source` keep their values. The id map is `target`'s
// (the source's when the target has none). Either pointer may be null: a null
// source changes nothing, a null target is ignored.
void UpdateConfigInternal(const std::shared_ptr<SetvaultObject>& source,
                          const std::shared_ptr<SetvaultObject>& target);

// The same merge of the JSON object `source` (which must not be part of
// `target`'s data) into `target`'s data, with `target`'s id map.
void MergeDataInto(const JsonValue& source, SetvaultObject& target);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_MODEL_UPDATE_MERGE_H_
