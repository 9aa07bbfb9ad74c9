#pragma once

#include <string>
#include <sys/stat.h>
#include <vector>

#include "tests/lib/World.h"

/// @file
/// Where the races happen: a site in a World, the user's own directory beside it, and a sentinel
/// tree that looks like the site and belongs to everybody but the user.

namespace race
{

/// The ids of the site's user.
constexpr uid_t user = 1001;
constexpr gid_t users = 100;

inline const std::string virtualHosts = "/srv/www/vhosts";
inline const std::string domain = virtualHosts + "/example.test";
inline const std::string subdomains = domain + "/subdomains";
inline const std::string shop = subdomains + "/shop";
/// The user's own directory outside of the site.
inline const std::string home = "/srv/home";
inline const std::string skeleton = virtualHosts + "/.skel/0";
inline const std::string renamed = subdomains + "/renamed";
/// Lists everything that is in the web root and the CGI directory before a round.
inline const std::string descriptor = "/srv/descriptor";

/// Where the web root and the CGI directory are.
enum class Place {
    inTheSubdomain,
    atHome, ///< in the user's own directory: the whole road is the user's
};

std::string webRootIn(Place place);
std::string cgiDirectoryIn(Place place);

/// What the user exchanges.
enum class Kind {
    directoryForLink, ///< directories of the web root for links to directories of the sentinel tree
    fileForLink,      ///< files of the web root for links to files of the sentinel tree
    fileForFifo,      ///< files of the web root for pipes that nobody reads
    directoryMoved,   ///< directories of the web root out of it, beside precious entries, and back
    nothingForLink,   ///< links to the sentinel tree where the skeleton has entries to bring
    middle,           ///< a directory on the road to the web root and the CGI directory
    base,             ///< the web root and the CGI directory themselves
    handedOut,        ///< directories in "conf" and "error_docs", which are the user's for a moment
    confItself,       ///< "conf" and "error_docs", in a subdomain's directory of the user
    road,             ///< a directory on the road to the subdomain
};

const char* nameOf(Kind kind);

/// Two places whose entries the user exchanges, or one entry that goes from one to the other.
struct Exchange {
    std::string inside;    ///< the place that the tool comes to
    std::string elsewhere; ///< the user's own place
    mode_t type;           ///< of what stands inside before a round, S_IF...; 0: nothing
    bool moves;            ///< there is only one entry
};

/// One step: what stands inside goes elsewhere, or back. Says whether it happened.
bool step(const Exchange& exchange);

/// The site, the sentinel tree and the user's own directory, on one file system.
class Ground
{
public:
    enum class Size { small, large };

    Ground(Kind kind, Size size, Place place = Place::inTheSubdomain);

    [[nodiscard]] const std::vector<Exchange>& exchanges() const { return exchanges_; }

    /// Puts the site into the state before a round, whatever the round has made of it.
    void restore();

    /// The first path of the sentinel tree that anything was done to: its content, owner, group or
    /// mode set, to the same value or another, an entry made or removed in it. Also a link of the
    /// user's that has become root's, which would be followed from now on. "" if there is neither.
    [[nodiscard]] std::string touched() const;

    /// Makes the site and the sentinel tree anew after a hit.
    void layOutSentinel();

private:
    /// An entry as it is to be before a round.
    struct Entry {
        std::string path;
        mode_t type; ///< S_IFDIR, S_IFREG, S_IFLNK, S_IFIFO; 0: nothing
        mode_t mode;
        uid_t owner;
        gid_t group;
        std::string text; ///< a link's target, a file's content
    };
    struct Mark {
        std::string path;
        struct stat status;
    };

    void addSite(Kind kind);
    void addFolder(const std::string& path, int directories, int files);
    void addSkeleton();
    void writeDescriptor() const;
    [[nodiscard]] std::string sectionOf(const char* prefix, const std::string& directory) const;
    void addExchanges(Kind kind);
    void addExchangesInDirectory(Kind kind, const std::string& number);
    void exchange(const std::string& inside, const std::string& elsewhere, mode_t type);
    void plant(const std::string& inside, const std::string& target);
    void move(const std::string& inside, const std::string& name);
    void add(Entry entry) { entries_.push_back(std::move(entry)); }
    void mark(const std::string& path);
    static void ensure(const Entry& entry);
    static void make(const Entry& entry);
    static void comeBack(const Exchange& exchange);

    int directories_ = 0;
    int files_ = 0;
    std::string top_; ///< holds the road to the web root and the CGI directory
    std::string webRoot_;
    std::string cgiDirectory_;
    std::vector<Entry> entries_;      ///< what holds others before what it holds
    std::vector<Exchange> exchanges_; ///< what is held by others before what holds it
    std::vector<Mark> marks_;
    size_t besideMoved_ = 0; ///< entries in the directory that things are moved to
};

} // namespace race
