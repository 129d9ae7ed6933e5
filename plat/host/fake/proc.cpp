// SPDX-License-Identifier: GPL-2.0
/*
 * The proc file system: directories and entries, the operation tables, and
 * files that are open through them.
 */
#include "internal.h"
#include "zorva_reports.h"

#include <algorithm>
#include <memory>

struct inode {
	int number;
};

struct proc_dir_entry {
	std::string name;
	umode_t mode;
	struct proc_dir_entry *parent;
	const struct proc_ops *ops;
	std::vector<std::unique_ptr<proc_dir_entry>> children;
	std::vector<struct file *> openers;
};

namespace
{

constexpr int ENOENT_ = 2;
constexpr int EIO_ = 5;
constexpr int EACCES_ = 13;
constexpr umode_t directory_mode = 0555;

#define REPORT_OPS(id, entry, dump, writer)                                    \
	{ zorva_##id##_open, fake::seq_read, writer, fake::seq_lseek,          \
	  zorva_report_release },
const struct proc_ops report_ops[] = { ZORVA_REPORTS(REPORT_OPS) };
#undef REPORT_OPS

proc_dir_entry root = { "/proc", directory_mode, nullptr, nullptr, {}, {} };
std::vector<std::string> calls;
unsigned int directories_refused;
std::function<void(const std::string &)> create_hook;
size_t files_open;
struct inode any_inode;

const fake::at_restart forget_calls([] {
	calls.clear();
	directories_refused = 0;
	create_hook = nullptr;
});

std::string path_of(const char *name, const proc_dir_entry *parent)
{
	std::string path = name;

	for (; parent && parent != &root; parent = parent->parent)
		path = parent->name + "/" + path;
	return path;
}

proc_dir_entry *find(proc_dir_entry *parent, const std::string &name)
{
	for (const auto &child : parent->children)
		if (child->name == name)
			return child.get();
	return nullptr;
}

proc_dir_entry *look_up(const std::string &path)
{
	proc_dir_entry *found = &root;
	size_t from = 0;

	while (found && from < path.size()) {
		const size_t to = std::min(path.find('/', from), path.size());

		found = find(found, path.substr(from, to - from));
		from = to + 1;
	}
	return found;
}

proc_dir_entry *insert(const char *name, umode_t mode, proc_dir_entry *parent,
		       const struct proc_ops *ops)
{
	if (!parent)
		parent = &root;
	fake::might_sleep("making a proc entry");
	if (find(parent, name)) {
		fake::warn(
			fake::format("proc_dir_entry '%s/%s' already registered\n",
				     parent->name.c_str(), name));
		return nullptr;
	}

	auto *const entry =
		new proc_dir_entry{ name, mode, parent, ops, {}, {} };

	parent->children.emplace_back(entry);
	return entry;
}

std::string describe(const char *name, umode_t mode)
{
	return fake::format("%s 0%03o", name, mode);
}

void release(struct file *file)
{
	if (file->entry->ops->release(&any_inode, file))
		fake::complain("a failing release");
	std::erase(file->entry->openers, file);
	file->dead = true;
	--files_open;
}

} // namespace

namespace fake
{

const std::vector<std::string> &proc_calls()
{
	return calls;
}

std::vector<std::string> proc_list(const std::string &directory)
{
	const proc_dir_entry *const found = look_up(directory);
	std::vector<std::string> names;

	if (found)
		for (const auto &child : found->children)
			names.push_back(
				describe(child->name.c_str(), child->mode));
	return names;
}

void refuse_directories(unsigned int count)
{
	directories_refused = count;
}

void after_proc_create(std::function<void(const std::string &name)> hook)
{
	create_hook = std::move(hook);
}

void forget_proc_entries()
{
	root.children.clear();
	files_open = 0;
}

size_t open_files()
{
	return files_open;
}

proc_file::proc_file(const std::string &path, access how, user who)
{
	proc_dir_entry *const entry = look_up(path);
	const umode_t wanted = how == access::writing ? 0222 : 0444;

	if (!entry || !entry->ops) {
		error_ = -ENOENT_;
		return;
	}
	if (who != user::root && !(entry->mode & wanted)) {
		error_ = -EACCES_;
		return;
	}
	file_ = new ::file{ nullptr, 0, entry, how == access::writing, false };
	might_sleep("open");
	error_ = entry->ops->open(&any_inode, file_);
	if (error_) {
		delete file_;
		file_ = nullptr;
		return;
	}
	entry->openers.push_back(file_);
	++files_open;
}

proc_file::~proc_file()
{
	close();
}

ssize_t proc_file::read(char *buffer, size_t count)
{
	if (file_->dead)
		return -EIO_;
	return file_->entry->ops->read(file_, buffer, count, &file_->position);
}

ssize_t proc_file::write(const void *text, size_t count)
{
	if (file_->dead || !file_->entry->ops->write)
		return -EIO_;
	return file_->entry->ops->write(file_, static_cast<const char *>(text),
					count, &file_->position);
}

loff_t proc_file::seek(loff_t offset, int whence)
{
	return file_->entry->ops->lseek(file_, offset, whence);
}

int proc_file::close()
{
	if (!file_)
		return 0;
	if (!file_->dead)
		release(file_);
	delete file_;
	file_ = nullptr;
	return 0;
}

std::string proc_file::read(size_t count)
{
	std::string text(count, '\0');
	const ssize_t length = read(text.data(), count);

	if (length < 0)
		complain(format("a read that fails with %d", length));
	text.resize(std::max<ssize_t>(length, 0));
	return text;
}

std::string proc_file::read_all(size_t chunk)
{
	std::string text;

	for (;;) {
		const std::string part = read(chunk);

		if (part.empty())
			return text;
		text += part;
	}
}

struct seq_file *proc_file::seq() const
{
	return zk_seq_of(file_);
}

std::string read_report(const std::string &path)
{
	proc_file file(path);

	if (file.error()) {
		complain(format("opening %s: %d", path.c_str(), file.error()));
		return "";
	}
	return file.read_all(131072);
}

} // namespace fake

struct proc_dir_entry *proc_mkdir(const char *name,
				  struct proc_dir_entry *parent)
{
	calls.push_back("mkdir " + path_of(name, parent));
	if (directories_refused) {
		--directories_refused;
		return nullptr;
	}
	return insert(name, directory_mode, parent, nullptr);
}

struct proc_dir_entry *proc_create(const char *name, umode_t mode,
				   struct proc_dir_entry *parent,
				   const struct proc_ops *ops)
{
	const std::string path = path_of(name, parent);

	calls.push_back("create " + describe(path.c_str(), mode));

	proc_dir_entry *const entry = insert(name, mode, parent, ops);

	if (create_hook)
		create_hook(name);
	return entry;
}

void remove_proc_entry(const char *name, struct proc_dir_entry *parent)
{
	proc_dir_entry *const directory = parent ? parent : &root;
	proc_dir_entry *const entry = find(directory, name);

	calls.push_back("remove " + path_of(name, parent));
	fake::might_sleep("removing a proc entry");
	if (!entry) {
		fake::warn(fake::format("name '%s'\n", name));
		return;
	}
	/* Files still open are closed first, and are of no use then. */
	while (!entry->openers.empty())
		release(entry->openers.back());
	std::erase_if(directory->children, [&](const auto &child) {
		return child.get() == entry;
	});
}

const struct proc_ops *zk_report_ops(unsigned int report)
{
	return &report_ops[report];
}
