#pragma once

#include <Core/Export.h>
#include <Core/Process/Progression/ProcessProgression.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace Orvan::Core::Process::Progression {

// A process made of sub-processes: the node owns one child per sub-process
// and reads as the plain mean of its children's fractions. A change anywhere
// below is passed up, and the observers of every ancestor are poked, the
// root's first.
//
// A node's lock guards its list of children and its token reference, and is
// never held while a child is read, so a child may use its parent from its
// captureProgression.
class ORVAN_CORE_EXPORT ProcessProgressionTreeNode : public ProcessProgression {
public:
  ProcessProgressionTreeNode();

  // The children go after the node's own destructor bodies, in the order they
  // were added, while the node's base still exists. In a tree more than
  // 10,000 levels deep, the subtrees below that depth go last, from a loop,
  // each still whole and attached to the node destroyed first.
  ~ProcessProgressionTreeNode() override;

  // Takes ownership of `child` and becomes its parent. Sends no change
  // notification: observers see the new reading at the next change. A null
  // child is reported and ignored.
  void addChild(std::unique_ptr<ProcessProgressionTreeNode>&& child);

  // The child at `index`, still owned by this node. The index is not checked.
  ProcessProgressionTreeNode* operator[](unsigned long long index);
  const ProcessProgressionTreeNode* operator[](unsigned long long index) const;

  // A new token that completes this node when its last holder lets it go. It
  // replaces the token handed out before, without detaching it.
  std::shared_ptr<ProcessProgressionToken> getToken();

  // 1.0 when completed, 0.0 without children, else the mean of the children.
  double captureProgression() const override;

protected:
  // Passes the change up to the parent first (the parent's virtual
  // progressionChanged, which climbs on to the root), then pokes this node's
  // own observers. Past 10,000 levels above the change, the remaining
  // ancestors are told from the root down by a loop, each through its
  // virtual progressionChanged.
  void progressionChanged() override;

private:
  static void tellAncestorsFromTheRootDown(ProcessProgressionTreeNode* nearest);

  std::vector<std::unique_ptr<ProcessProgressionTreeNode>> children;
  ProcessProgressionTreeNode* parent = nullptr;
  // Mirrors children.size(), so that a childless node reads 0.0 without
  // taking the lock.
  std::atomic<std::size_t> childCount{0};
  mutable std::mutex childrenMutex;
};

} // namespace Orvan::Core::Process::Progression
