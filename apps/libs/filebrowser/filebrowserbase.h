// The model behind a file browser: a root folder, the selected paths below it
// and the operations on them (copy, move, delete) or on the root (empty it,
// create a path).  Progress and every failed item are reported through two
// functions supplied by the owner; a failed item stays selected for a retry.
//
// Entries by index
// ----------------
// The index-based operations address the entries of the current listing:
// index i is the entry that FileBrowserNavigator::ls delivers with index i for
// currentPath(), in the same order (folders first, then files, each group
// sorted without regard to case, hidden names left out, files restricted to the
// extension filter).  The base stands at its root (currentPath() is the root);
// a navigator addresses the folder it stands in.  Every call lists the folder
// afresh, so an index refers to the folder as it is at the time of the call.
// An index past the end, or a folder that cannot be listed, addresses no entry:
// path() is then empty and the other operations change nothing and return
// false (mkdir excepted, see there).
//
// - path(i): currentPath() / the entry's name.
// - isFile(i): the entry is listed as a file, i.e. it is not a folder (a
//   dangling link is a file).
// - selected(i): the entry's path is in the selection.
// - selectToggle(i): puts the entry's path into the selection or takes it out;
//   returns whether it is selected afterwards.
// - selectAllOfRoot(): adds every entry of the root that is not selected yet,
//   hidden ones included (it is what the select-all flag means, and removeAll
//   deletes hidden entries too).  A root that cannot be read logs "Could not
//   select all of root %s: %s" and returns false; execute() and remove() then
//   go on with the selection as it is and return the result of acting on it.
// - expand(i), collapse(i), expandToggle(i): record whether the owner shows the
//   folder entry i opened (the expand flag, read with isExpanded()).  They only
//   act on folder entries and return whether they did; they do not move the
//   browser, which cd() of the navigator does.
// - directoryEmpty(i): the entry is a folder with nothing in it; an unreadable
//   folder logs "Couldn't determine if directory is empty: %s" and is not empty.
// - mkdir(i, name): logs "Creating directory %s" and creates `name` (which may
//   hold several levels) inside folder entry i, or inside the current folder
//   when i addresses a file or no entry, so that an empty folder can get a
//   sub-folder too.
// - rename(i, name): logs "Renaming %s to %s" and renames the entry within its
//   folder.  `name` must be a plain file name; an existing entry of that name is
//   never overwritten.
//
// Safety: nothing outside the root is ever deleted, renamed or created by
// this class.  remove(), the delete half of a move, rename() and mkdir() refuse
// such paths (resolved through links, except the last component, which is
// never followed when deleting) with a filesystem error "Outside root",
// reported like any other failed item.
//
// Failed items are logged with "%s" at Warn and passed to the error function
// with their path relative to the root (createPath passes the path it was
// given).
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

class FileBrowserBase {
public:
    enum Operation { Copy = 0, Move = 1 };

    // One listed folder entry, handed to the listing callback.
    struct EntryInfo {
        char const* name; // valid only during the callback
        uint32_t index;
        std::filesystem::file_type type; // directory or regular
        bool isLast;
    };

    // Orders names like strcasecmp.
    struct InsensitiveCompare {
        bool operator()(std::string const& a, std::string const& b) const;
    };

    using ProgressFunction = std::function<void(float)>;
    using ErrorFunction =
        std::function<void(std::filesystem::path const&, std::filesystem::filesystem_error const&)>;

    FileBrowserBase(ProgressFunction&& progress, ErrorFunction&& error);

    // The folder the index-based operations address; the base stands at the root.
    virtual std::filesystem::path currentPath() const;
    // Operations run to their end inside the call, so the browser is never busy.
    virtual bool isBusy() const;
    // A text the owner may show while an operation runs; the base has none.
    virtual std::string statusText() const;
    virtual std::filesystem::path path(unsigned int index) const;
    virtual bool expandToggle(unsigned int index);
    virtual bool expand(unsigned int index);
    virtual bool collapse(unsigned int index);
    // The root is writable through this browser.
    virtual bool isReadOnly() const;
    // The root is not on a removable medium.
    virtual bool isRemovableMedium() const;
    virtual bool directoryEmpty(unsigned int index) const;
    // Deletes the selection (first selecting all of the root when the
    // select-all flag is set); true when every item was deleted.
    virtual bool remove();
    virtual ~FileBrowserBase() = default;

    // Stores the weakly canonical form of `root`; the selection is kept.
    void setRootPath(std::string const& root);
    std::filesystem::path const& getRootPath() const { return root; }
    void setExtensionFilter(std::string const& extension) { extensionFilter = extension; }
    void setSelectAll(bool all) { selectAll = all; }
    bool isExpanded() const { return expanded; }
    // A caption the owner may keep with the browser; no operation uses it.
    void setTitle(std::string const& text) { title = text; }
    std::string const& getTitle() const { return title; }
    std::vector<std::filesystem::path> const& getSelection() const { return selection; }

    // Makes sure the folder exists, creating missing parents; false on failure.
    bool createPath(std::filesystem::path const& path);
    // Applies `action` to every selected path; items that succeed leave the
    // selection, failed ones stay.  True when none failed.
    bool forSelected(std::function<void(std::filesystem::path const&)> action);
    // Copies or moves the selection into `destination` (created if needed).
    bool execute(Operation operation, std::filesystem::path const& destination);
    // Deletes everything inside the root; filesystem errors propagate.
    void removeAll();

    bool isFile(unsigned int index) const;
    bool selected(unsigned int index) const;
    bool selectToggle(unsigned int index);
    bool selectAllOfRoot();
    bool mkdir(unsigned int index, std::filesystem::path const& name);
    bool rename(unsigned int index, std::string const& name);

protected:
    // Lists currentPath() as FileBrowserNavigator::ls documents it.
    void listEntries(std::function<void(EntryInfo const&)> const& callback) const;

private:
    struct Entry {
        std::string name;
        std::filesystem::file_type type;
    };

    std::optional<Entry> entry(unsigned int index) const;
    void reportFailure(std::filesystem::path const& reported,
                       std::filesystem::filesystem_error const& failure) const;
    void requireInsideRoot(std::filesystem::path const& target) const;

    std::string title;
    std::filesystem::path root;
    bool expanded;
    bool selectAll;
    std::string extensionFilter;
    std::vector<std::filesystem::path> selection;
    ProgressFunction progress;
    ErrorFunction error;
};
