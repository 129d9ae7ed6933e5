// SPDX-License-Identifier: GPL-2.0
/*
 * Sequence files of one record, as the kernel has them: the record is
 * formatted into a buffer and handed out from there. One that fills the buffer
 * to its end counts as cut: it is formatted again, into a buffer twice as big.
 * It is formatted anew by a read or a seek that does not go on where the last
 * one ended.
 */
#include "internal.h"

#include <algorithm>
#include <string.h>

namespace
{

constexpr int EAGAIN_ = 11;
constexpr int EINVAL_ = 22;

std::vector<fake::seq_print> prints;
std::function<void(const fake::seq_print &)> print_hook;

const fake::at_restart forget_prints([] {
	prints.clear();
	print_hook = nullptr;
});

} // namespace

struct seq_file {
	char *buf;
	size_t size;
	size_t from;
	size_t count;
	bool shown;
	loff_t read_pos;
	int (*show)(struct seq_file *seq, void *unused);
	void *operations;
	void *data;
};

namespace
{

/* One run of the record. */
int show(struct seq_file *seq)
{
	fake::might_sleep("a sequence file's show");
	return seq->show(seq, reinterpret_cast<void *>(1));
}

bool has_overflowed(const struct seq_file *seq)
{
	return seq->count == seq->size;
}

bool get_buffer(struct seq_file *seq, size_t size)
{
	seq->size = size;
	seq->buf = static_cast<char *>(fake::kernel_alloc(size));
	return seq->buf;
}

bool enlarge(struct seq_file *seq)
{
	fake::kernel_free(seq->buf);
	seq->count = 0;
	return get_buffer(seq, 2 * seq->size);
}

void rewind(struct seq_file *seq)
{
	seq->shown = false;
	seq->count = 0;
	seq->from = 0;
}

/* Puts into the buffer what a read at an offset begins with. */
int traverse(struct seq_file *seq, loff_t offset)
{
	rewind(seq);
	if (!offset)
		return 0;
	if (!seq->buf && !get_buffer(seq, ZK_PAGE_SIZE))
		return -ENOMEM;

	const int error = show(seq);

	if (error < 0)
		return error;
	if (error)
		seq->count = 0;
	if (has_overflowed(seq))
		return enlarge(seq) ? -EAGAIN_ : -ENOMEM;
	seq->shown = true;
	seq->from = std::min<loff_t>(offset, seq->count);
	seq->count -= seq->from;
	return 0;
}

int move_to(struct seq_file *seq, loff_t offset)
{
	int error;

	do
		error = traverse(seq, offset);
	while (error == -EAGAIN_);
	if (error)
		rewind(seq);
	seq->read_pos = error ? 0 : offset;
	return error;
}

size_t hand_out(struct seq_file *seq, char *buffer, size_t room)
{
	const size_t bytes = std::min(seq->count, room);

	if (!bytes)
		return 0;
	memcpy(buffer, seq->buf + seq->from, bytes);
	seq->from += bytes;
	seq->count -= bytes;
	return bytes;
}

/* Formats the record, if it has not been yet. */
int fill(struct seq_file *seq)
{
	if (!seq->buf && !get_buffer(seq, ZK_PAGE_SIZE))
		return -ENOMEM;
	seq->from = 0;
	while (!seq->shown) {
		const int error = show(seq);

		if (error < 0) {
			seq->count = 0;
			return error;
		}
		/* Meant to be left out. */
		if (error)
			seq->count = 0;
		if (!seq->count || !has_overflowed(seq))
			seq->shown = true;
		else if (!enlarge(seq))
			return -ENOMEM;
	}
	return 0;
}

} // namespace

namespace fake
{

ssize_t seq_read(struct file *file, char *buffer, size_t count,
		 loff_t *position)
{
	struct seq_file *const seq = zk_seq_of(file);
	size_t copied = 0;
	int error = 0;

	if (!count)
		return 0;
	might_sleep("seq_read");
	if (*position == 0) {
		seq->shown = false;
		seq->count = 0;
	}
	if (*position != seq->read_pos) {
		error = move_to(seq, *position);
		if (error)
			return error;
	}
	if (seq->count)
		copied = hand_out(seq, buffer, count);
	if (!seq->count && copied < count) {
		error = fill(seq);
		copied += hand_out(seq, buffer + copied, count - copied);
	}
	if (!copied)
		return error;
	*position += copied;
	seq->read_pos += copied;
	return copied;
}

loff_t seq_lseek(struct file *file, loff_t offset, int whence)
{
	struct seq_file *const seq = zk_seq_of(file);

	might_sleep("seq_lseek");
	if (whence == 1)
		offset += file->position;
	if (whence > 1 || offset < 0)
		return -EINVAL_;
	if (offset != seq->read_pos) {
		const int error = move_to(seq, offset);

		if (error) {
			file->position = 0;
			return error;
		}
	}
	file->position = offset;
	return offset;
}

size_t proc_file::buffer_size() const
{
	return seq()->size;
}

const std::vector<seq_print> &seq_prints()
{
	return prints;
}

void on_seq_print(std::function<void(const seq_print &made)> hook)
{
	print_hook = std::move(hook);
}

} // namespace fake

int single_open_size(struct file *file,
		     int (*show)(struct seq_file *seq, void *unused),
		     void *data, size_t size)
{
	char *const buf = static_cast<char *>(fake::kernel_alloc(size));

	if (!buf)
		return -ENOMEM;

	void *const operations = fake::kernel_alloc(16);

	if (!operations) {
		fake::kernel_free(buf);
		return -ENOMEM;
	}

	auto *const seq = static_cast<struct seq_file *>(
		fake::kernel_alloc(sizeof(struct seq_file)));

	if (!seq) {
		fake::kernel_free(operations);
		fake::kernel_free(buf);
		return -ENOMEM;
	}
	if (file->private_data)
		fake::warn("a file opened as two sequence files\n");
	seq->buf = buf;
	seq->size = size;
	seq->show = show;
	seq->operations = operations;
	seq->data = data;
	file->private_data = seq;
	return 0;
}

int single_release(struct inode *, struct file *file)
{
	struct seq_file *const seq = zk_seq_of(file);

	fake::kernel_free(seq->buf);
	fake::kernel_free(seq->operations);
	fake::kernel_free(seq);
	return 0;
}

void seq_vprintf(struct seq_file *seq, const char *fmt, va_list args)
{
	const std::string text = fake::vformat(fmt, args);

	prints.push_back({ text, fake::current_context() });
	if (print_hook)
		print_hook(prints.back());
	if (seq->count + text.size() < seq->size) {
		memcpy(seq->buf + seq->count, text.data(), text.size());
		seq->count += text.size();
	} else {
		seq->count = seq->size;
	}
}

struct seq_file *zk_seq_of(struct file *file)
{
	return static_cast<struct seq_file *>(file->private_data);
}

bool zk_seq_has_overflowed(struct seq_file *seq)
{
	return has_overflowed(seq);
}

void *zk_seq_private(struct seq_file *seq)
{
	return seq->data;
}

void zk_seq_set_private(struct seq_file *seq, void *data)
{
	seq->data = data;
}
