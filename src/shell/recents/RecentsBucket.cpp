#include "shell/recents/RecentsBucket.h"

#include <algorithm>
#include <iterator>
#include <list>
#include <utility>

namespace vorlane {
namespace {

constexpr std::chrono::seconds recently{7200};
constexpr int weekDays = 7;

}  // namespace

std::vector<RecentsBucket::Group> RecentsBucket::group(std::vector<RecentItem> items, Date now,
                                                       const LocalCalendar& calendar) {
  const auto today = calendar.dayNumber(now);
  const auto weekAgo = calendar.addingDays(now, -weekDays);
  const auto kindOf = [&](Date date) {
    if (calendar.dayNumber(date) == today) return now - date <= recently ? Kind::today : Kind::earlierToday;
    return date >= weekAgo ? Kind::thisWeek : Kind::older;
  };
  // A list's sort keeps equals in their order, and needs no buffer.
  std::list<RecentItem> newestFirst(std::make_move_iterator(items.begin()),
                                    std::make_move_iterator(items.end()));
  newestFirst.sort([](const RecentItem& a, const RecentItem& b) { return a.updatedAt > b.updatedAt; });

  std::vector<Group> groups{
      {Kind::today, {}}, {Kind::earlierToday, {}}, {Kind::thisWeek, {}}, {Kind::older, {}}};
  for (auto& item : newestFirst) {
    const auto kind = kindOf(item.updatedAt);
    std::ranges::find(groups, kind, &Group::bucket)->items.push_back(std::move(item));
  }
  std::erase_if(groups, [](const Group& group) { return group.items.empty(); });
  return groups;
}

}  // namespace vorlane
