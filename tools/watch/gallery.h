// SPDX-License-Identifier: Apache-2.0
// Faces that are known by name, in a file of SQLite that its owner alone may read: names, and features with the pictures
// that they come from. Features of another network mean something else, so a gallery keeps to the one that it was begun with.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "feature_index.h"

struct sqlite3;

namespace kelnn_cli {

struct Match {
  std::string name;
  float similarity;
};

class Gallery {
 public:
  enum class Use { kRead, kWrite };  // kWrite: begun where there is none

  // `network`: the file of the model whose features are meant; none: names alone are wanted. A Failure for what is no
  // gallery, or another network's. What is added or removed is kept by keep(), all of it or nothing.
  Gallery(const std::string& path, Use use, const std::string& network = "");
  ~Gallery();

  // False: the very same face is there already.
  bool add(const std::string& name, const std::string& picture, const kel_nn::Feature& feature);
  int remove(const std::string& name);  // how many faces it had
  void keep();                          // once, when all is done

  std::vector<std::pair<std::string, int>> people()
      const;  // names in order, how many faces of each

  bool is_empty() const { return index_.size() == 0; }
  // Whose face is nearest. Of what was there when it was opened.
  Match nearest(const kel_nn::Feature& feature) const;

 private:
  class Statement;
  struct Close {
    void operator()(sqlite3* database) const;
  };

  struct Unkept {  // a file that was begun here, and goes if nothing is kept in it
    ~Unkept();
    std::string path;
  };

  void begin_or_check(Use use, const std::string& network);
  void load();

  std::string path_;
  Unkept own_file_;
  std::unique_ptr<sqlite3, Close> database_;
  FeatureIndex index_;
  std::vector<std::string> names_;  // of the index's features
};

std::string gallery_of_user();  // the file that is meant when none is named

}  // namespace kelnn_cli
