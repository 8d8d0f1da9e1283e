/// \file
/// A keyed tree of reference-counted nodes, reached by paths of keys.
///
///     OrvaSmartPointer<OrvaTreeNode> root(new OrvaTreeNode);
///     root->add(new MyNode("daemons/agent/port"), "/");    // makes "daemons" and "agent"
///     OrvaSmartPointer<OrvaTreeNode> port = root->getNode("daemons / agent/port", "/");
///
/// A node owns its children through smart pointers; a child lives as long as
/// some parent or client holds it. Levels that a path passes through and that
/// do not exist yet are made as plain OrvaTreeNode objects ("placeholders").
/// Clients derive from OrvaTreeNode to hang their own data in the tree, and
/// the tree treats those nodes differently when a path is added a second time
/// (see add(node, path)).
///
/// Which nodes are placeholders is decided by the name of the run-time type: a
/// node whose type name contains the text "OrvaTreeNode" is one. A client's
/// class named, say, MyOrvaTreeNode is therefore taken for a placeholder too.
///
/// Keys are compared as plain byte strings, case-sensitive. Each path entry is
/// trimmed of blanks at both ends before it is used.
///
/// Thread safety: none beyond the reference counts. A tree that several
/// threads change needs a lock of the caller's. The forms that take a string
/// of delimiters cut the path with the C library's strtok: they must not run
/// on two threads at once, and they disturb a strtok sequence of the caller's.
#ifndef OVKIT_ORVATREENODE_H
#define OVKIT_ORVATREENODE_H

#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaNotification.h>
#include <ovkit/OrvaObjectBase.h>

#include <string>
#include <vector>

namespace OrvaSupport
{

/// A node: a key, its children, and a parent pointer. The node sends no
/// notification of its own; the collaborator base is there for clients.
class OVKIT_API OrvaTreeNode : public OrvaObjectBase, public OrvaCollaborator
{
public:
    /// An empty key, no children, no parent.
    OrvaTreeNode();
    /// `key`, no children, no parent. Not explicit: a string converts.
    OrvaTreeNode(const std::string& key);
    /// Copies the key, the parent pointer and the list of children: the
    /// children are shared with `other`, not copied. The copy starts with no
    /// references and no dependents.
    OrvaTreeNode(const OrvaTreeNode& other);
    /// As the copy constructor; the reference count and the dependents of
    /// this node stay as they are. Assigning to itself does nothing.
    OrvaTreeNode& operator=(const OrvaTreeNode& other);
    /// setKey(key).
    OrvaTreeNode& operator=(const std::string& key);
    /// Drops the references to the children.
    ~OrvaTreeNode() noexcept(false) override;

    /// The key.
    const std::string& getKey() const;
    /// Changes the key only: the node is not moved to its new sorted place
    /// among its siblings.
    void setKey(const std::string& key);

    /// The child at `index`. The index is not checked: one outside the
    /// children is undefined behaviour.
    OrvaSmartPointer<OrvaTreeNode> operator[](int index);

    /// The first direct child whose key equals `key`, or null.
    OrvaSmartPointer<OrvaTreeNode> getNode(const std::string& key);
    /// Follows `path` down from this node, trimming each entry of blanks, and
    /// returns the node at its end, or null if a level is missing or the path
    /// is empty. The entries that were followed are removed from `path`.
    OrvaSmartPointer<OrvaTreeNode> getNode(std::vector<std::string>& path);
    /// getNode(path) with `path` cut at every run of characters of
    /// `delimiters` (empty segments vanish: "a//b" is "a", "b"). A null
    /// `delimiters` is taken as no delimiters. Uses strtok: see above.
    OrvaSmartPointer<OrvaTreeNode> getNode(const std::string& path, const char* delimiters);

    /// Adds `node` as a direct child, in front of the first child whose key
    /// is above its own, or at the end: a node whose key is already there
    /// goes behind those of that key. Keys are not unique. The parent pointer
    /// is not set. Returns `node`; a null `node` adds nothing.
    OrvaSmartPointer<OrvaTreeNode> add(OrvaSmartPointer<OrvaTreeNode> node);
    /// Adds `node` at the end of `path`, each entry trimmed of blanks, and
    /// removes the entries it used from `path`. Missing levels on the way are
    /// made as placeholders. At the last level, `node` gets the last entry as
    /// its key, and:
    /// - with no child of that key, it is added there with add(node);
    /// - if the child of that key is a client's node (its type name does not
    ///   contain "OrvaTreeNode"), the tree is left as it is and that child is
    ///   returned instead of `node`;
    /// - if the child is a placeholder, `node` takes its place: the
    ///   placeholder's children are appended behind those that `node` already
    ///   has, the placeholder is left without children and is removed, and
    ///   `node` is added with add(node). Should the child be `node` itself,
    ///   the same steps leave it without children, moved behind any siblings
    ///   of its key.
    /// Returns the node that stands at the path, or null (and changes nothing)
    /// if the path is empty or `node` is null.
    OrvaSmartPointer<OrvaTreeNode> add(OrvaSmartPointer<OrvaTreeNode> node, std::vector<std::string>& path);
    /// add(node, path) with the node's own key as the path, cut as in
    /// getNode(path, delimiters). A key made only of delimiters is an empty
    /// path: nothing is added and the result is null.
    OrvaSmartPointer<OrvaTreeNode> add(OrvaSmartPointer<OrvaTreeNode> node, const char* delimiters);

    /// Places `node` at `index`, whatever its key, and makes this node its
    /// parent. The index is not checked. Later add() calls still stop at the
    /// first greater key, so the children may no longer end up sorted.
    void insert(int index, OrvaSmartPointer<OrvaTreeNode> node);

    /// Removes the first child whose key equals `key`; nothing if there is
    /// none. The child lives on only if others hold it.
    void erase(const std::string& key);
    /// Removes the child at `index`. The index is not checked.
    void erase(int index);

    /// Logs this node with printGuts(level), then each child, in order, with
    /// print(level + 1). Does nothing unless a log is registered and its
    /// global level is exactly 9.
    void print(int level);
    /// Writes one level 9 record: four blanks per level, then
    /// "OrvaTreeNode::print: Key = " and the key. Nothing without a
    /// registered log. Derived classes may write their own data instead.
    virtual void printGuts(int level);

private:
    /// The first child whose key equals `key`, or the end of the children.
    std::vector<OrvaSmartPointer<OrvaTreeNode>>::iterator findChild(const std::string& key);
    /// Takes the place of the placeholder `old` under this node.
    OrvaSmartPointer<OrvaTreeNode> replacePlaceholder(OrvaSmartPointer<OrvaTreeNode> old,
                                                      OrvaSmartPointer<OrvaTreeNode> node,
                                                      const std::string& key);

    std::vector<OrvaSmartPointer<OrvaTreeNode>> m_vChildren;
    std::string m_sKey;
    /// Set by insert() only; not a reference, and nothing reads it.
    OrvaTreeNode* m_pParent;
};

extern template class OVKIT_API OrvaSmartPointer<OrvaTreeNode>;

} // namespace OrvaSupport

#endif // OVKIT_ORVATREENODE_H
